#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace brassline {

class BLDoc;
class BLDocumentController;

// A "brassline://<command>?<query>" URL: the host lower-cased is the command; query
// values are percent-decoded ("+" stays a plus).
struct URLRequest {
    std::string url;
    std::string command;
    std::map<std::string, std::string, std::less<>> query;

    // Nothing, with the reason in `error`, for another scheme or an empty command.
    static std::optional<URLRequest> parse(std::string_view url, std::string* error = nullptr);
    // The query value, "" when absent.
    std::string value(std::string_view key) const;
    bool has(std::string_view key) const { return query.find(key) != query.end(); }
};

// How a URL command ended. `message` is its output when done and the alert otherwise.
struct URLResult {
    enum class Status { Done, Failed, NotAvailable, NotSupported };
    Status status = Status::Done;
    std::string message;

    static URLResult done(std::string message) { return {Status::Done, std::move(message)}; }
    static URLResult failed(std::string message) { return {Status::Failed, std::move(message)}; }
};

// The URL scheme's commands in the order the document and the application see them.
// handleContextURL answers nothing when the command is not one of the document's; then
// handleApplicationURL runs it, or answers "The command <x> is not supported". A command
// whose work belongs to a subsystem not installed (an empty hook in documentHooks())
// answers NotAvailable and changes nothing. Changes are left unsaved. Main thread.
std::optional<URLResult> handleContextURL(BLDoc& document, const URLRequest& request);
URLResult handleApplicationURL(BLDocumentController& controller, BLDoc* document, const URLRequest& request);
// Both steps: the document's commands first (when there is a document), then the application's.
URLResult handleURL(BLDocumentController& controller, BLDoc* document, const URLRequest& request);

}  // namespace brassline
