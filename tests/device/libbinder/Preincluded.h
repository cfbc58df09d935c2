#pragma once

// Standard headers that the platform's sources use without naming them: its own C library and toolchain
// bring them along.

#include <linux/types.h>

#include <atomic>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
