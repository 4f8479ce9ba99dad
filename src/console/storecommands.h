#pragma once

// The console's operations that run without a window: checking, the history, export, import and
// copying a store. Looking at a store or exporting from it never creates one.

namespace qarvo::console {

struct Options;

// True when `options` ask for one of these operations rather than the window.
bool isStoreCommand(const Options &options);
// Runs it and answers the exit code: 0 done, 1 failed (having said why on standard error).
int runStoreCommand(const Options &options);

} // namespace qarvo::console
