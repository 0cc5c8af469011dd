#pragma once

// Exit statuses of meterctl; scripts on the factory line branch on them, so they are part of
// the command-line contract and listed in --help.
namespace ExitCode {
enum Code { Success = 0, Failed = 1, Usage = 2, Unavailable = 3 };
}
