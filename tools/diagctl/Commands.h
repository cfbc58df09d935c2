// diagctl's commands, a group a file. Each function adds its subcommands to the application; a subcommand's
// callback leaves its outcome in `exitCode`.
#pragma once

#include <CLI/CLI.hpp>

namespace diagctl {

constexpr int kDone = 0;
constexpr int kRefused = 1;     // refused, not found, not answered; stderr says what to do
constexpr int kWrongUsage = 2;

}  // namespace diagctl
