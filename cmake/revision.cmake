# Writes OUTPUT with QLUX_REVISION set to 12 hex digits of the source tree's
# commit (zeros outside a checkout); the file is rewritten only when it changes.
execute_process(COMMAND git -C "${SOURCE_DIR}" rev-parse HEAD
                OUTPUT_VARIABLE rev OUTPUT_STRIP_TRAILING_WHITESPACE
                RESULT_VARIABLE status ERROR_QUIET)
if(NOT status EQUAL 0 OR NOT rev MATCHES "^[0-9a-f]+$")
  set(rev "000000000000")
endif()
string(SUBSTRING "${rev}000000000000" 0 12 rev)
set(text "#define QLUX_REVISION \"${rev}\"\n")
if(EXISTS "${OUTPUT}")
  file(READ "${OUTPUT}" old)
endif()
if(NOT "${old}" STREQUAL "${text}")
  file(WRITE "${OUTPUT}" "${text}")
endif()
