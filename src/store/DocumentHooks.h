#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace brassline {

class BLDoc;
class ManagedObject;
struct URLRequest;

// Calls from the document life cycle into subsystems built later (recurring invoices,
// plug-ins, layouts, maintenance commands). Each is empty until its subsystem installs
// it; an empty hook means the step is skipped and, for a command, reported as not
// available. Main thread; resettable in tests.
struct DocumentHooks {
    // A URL command's work: true when done; `message` is printed either way (empty: a
    // plain "done").
    using URLCommand = std::function<bool(BLDoc* document, const URLRequest& request, std::string& message)>;

    // Recurring invoices that are due are made (on open and hourly).
    std::function<void(BLDoc&)> updatePermanentInvoices;
    // Plug-ins of a type ("openDocument", "activateDocument") are called for the document.
    std::function<void(BLDoc&, std::string_view type)> callPluginsOfType;
    // Gives the default layout of a new company file its archive (first-time set-up).
    std::function<void(ManagedObject& layout)> setupDefaultLayout;
    // Writes one layout as a layout package into `folder`; false when it can't.
    std::function<bool(ManagedObject& layout, const std::string& folder)> exportLayout;
    // The URL commands whose work belongs to later subsystems, by lower-case command.
    std::map<std::string, URLCommand, std::less<>> urlCommands;
};

DocumentHooks& documentHooks();
// Empties every hook (tests).
void resetDocumentHooks();

}  // namespace brassline
