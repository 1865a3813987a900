// The program's entry point: everything happens in qluxEntry (app/entry.h), so
// that the tests can call it as the program would.
#include "app/entry.h"

int main(int argc, char** argv) { return qluxEntry(argc, argv); }
