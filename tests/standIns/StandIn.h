#pragma once

// What tests ask of the stand-ins of NVIDIA's libraries. The functions below are exported by the stand-in of the
// driver; tests look them up in the library that the program has loaded. From outside, the environment speaks:
//   VIEWTINT_STAND_IN_DEVICES   how many devices there are (1)
//   VIEWTINT_STAND_IN_MIB       memory of each, in MiB (4096)
//   VIEWTINT_STAND_IN_FAIL      CALL:NUMBER:RESULT, e.g. cuLaunchKernel:12:719, "+" after it for all later ones too

extern "C" {

/// From now on the call of that name fails with `result`, the next one being number 0; `always`: all later ones too. A
/// null name ends it.
void standInFail(const char* call, int number, int result, bool always);
/// How often a call was made.
int standInCount(const char* call);
}
