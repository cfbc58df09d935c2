#pragma once

// Said of a function that clients look up in the module by name; everything else in it is hidden.
#define OSSDK_ENTRY_POINT extern "C" __attribute__((visibility("default")))
