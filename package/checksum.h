// The installer file's checksum record: proof that the file is whole.
//
// The record is the last thing the builder appends before any signature: a
// marker, then the 16 raw bytes of an MD5 digest.
//   "v2sum: "  (current)  covers the file from offset 5000 up to the marker,
//                         so a signing step may change the image's headers
//                         in the first 5000 bytes and append its certificate
//                         table behind the digest without breaking it.
//   "MD5SUM: " (old)      covers the file from offset 0 up to the marker.
// The verifier looks for the marker nearest the end of the last 20,000
// bytes. Paths are UTF-8.
#ifndef QLUX_PACKAGE_CHECKSUM_H_
#define QLUX_PACKAGE_CHECKSUM_H_

const int kChecksumModeOld = 1;
const int kChecksumModeCurrent = 2;
// Where the current record's digest starts covering the file.
const int kChecksumSkippedHead = 5000;
// How far from the end the verifier looks for a marker.
const int kChecksumSearchTail = 20000;
// The bytes that a record of each mode adds to the file: its marker and the
// digest.
const int kChecksumRecordSizeOld = 8 + 16;
const int kChecksumRecordSizeCurrent = 7 + 16;

// True when the named file's checksum record is found and matches. Logs
// nothing.
bool verifyPackageChecksum(const char* fileName);

// Appends a checksum record of `mode` (kChecksumModeOld or
// kChecksumModeCurrent) over the file as it stands. Gives 0 or the file
// layer's error code.
int writePackageChecksum(const char* fileName, int mode);

// The same, with the mode from the environment: OLD_CHECKSUMMING whose
// first character is "1" selects the old record, anything else the current.
int writePackageChecksum(const char* fileName);

#endif  // QLUX_PACKAGE_CHECKSUM_H_
