#pragma once

#include <string>

namespace brassline {

class ManagedObjectContext;

// The files that go beside the data in a backup package, so that a backup can be looked
// at without opening it. Reads the context only. Main thread.
class BLBackup {
public:
    // Fills `backupPath`: "Layouts" with each layout exported (through the layout hook;
    // skipped while there is none) and "QuickLook" with "Preview.html" from the template
    // resource plus the icon and preview images when the resources have them. False with
    // the reason in `error` when a folder or file can't be written.
    static bool createAdditionalBackups(const std::string& backupPath, ManagedObjectContext& context,
                                        std::string* error = nullptr);
    // The resource "QLBackupTemplate.html" with its tags filled: <owner/> (the profile),
    // <blversion/>, <osversion/>, <date/> and <contents/> (a line per main entity with
    // its count). Empty when the template is missing (logged).
    static std::string quickLookHTML(ManagedObjectContext& context);
};

}  // namespace brassline
