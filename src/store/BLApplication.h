#pragma once

#include <cstddef>

namespace brassline {

// The process's start and stop around the open documents. Main thread.
class BLApplication {
public:
    // Before anything else: the four misspelled "nofti..." user default keys are renamed
    // (a value already under the right key wins) and the application's defaults file is
    // registered. Runs once per process; later calls do nothing.
    static void processEntry();
    // Renames the misspelled keys; answers how many values moved.
    static size_t renameMisspelledDefaults();
    // After launch: the documents of "DocumentsToReopen" reopen, then the last document
    // when none is open. Answers how many documents are open.
    static size_t applicationDidFinishLaunching();
    // At quit: the open documents are stored for the next launch.
    static void applicationWillTerminate();
    // Lets processEntry run again (tests).
    static void resetForTesting();
};

}  // namespace brassline
