// SPDX-License-Identifier: MIT
#pragma once

// Exit statuses of vorn. A command that ran a helper call exits with that
// call's result code (NubraCommon::ErrorCode, 0 to 12), so scripts can test
// for exactly what happened. Everything vorn decides on its own uses the
// BSD sysexits values, which stay clear of the result codes.
namespace ExitStatus {

constexpr int Ok = 0;
constexpr int Usage = 64;       // bad arguments: unknown option, malformed key=value, ...
constexpr int DataError = 65;   // input that parses but makes no sense (bad JSON file, wrong shape)
constexpr int NoInput = 66;     // an input file does not exist or cannot be read
constexpr int NoCloud = 69;     // no client configuration, or one the client rejected
constexpr int Software = 70;    // a demo step failed or the local cloud did not start
constexpr int CantCreate = 73;  // an output file could not be written
constexpr int TempFail = 75;    // no answer in time, for commands whose 1 means "no" (upgrade exists)
constexpr int NotBuilt = 78;    // the command's helper calls are not part of this build
constexpr int Interrupted = 130;// stopped by Ctrl-C (128 + SIGINT)

// What each of vorn's own statuses means: `vorn codes`, --help, the man page.
struct Meaning {
    int status;
    const char* text;
};
inline constexpr Meaning kMeanings[] = {
    {Usage, "bad arguments (unknown command or option, malformed key=value, ...)"},
    {DataError, "input that makes no sense"},
    {NoInput, "an input file cannot be read"},
    {NoCloud, "no usable client configuration"},
    {Software, "a demo step failed or the local cloud did not start"},
    {CantCreate, "an output file (or the token file) cannot be written"},
    {TempFail, "no answer in time, for commands whose 1 means \"no\" (upgrade exists)"},
    {NotBuilt, "the command is not available in this build"},
    {Interrupted, "stopped by Ctrl-C"},
};

} // namespace ExitStatus
