#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace brassline::issuecommands {

// The command-line operations of the sendable life cycle, apart from argument parsing.
// Each opens the company file, writes its answer to `out` and its failure to `err`, and
// answers the exit code: 0 on success, 1 for bad input or a refused file or document, 2
// when a save fails.

struct IssueOptions {
    std::vector<std::string> uids;
    std::optional<std::string> date;     // ISO 8601; the sheet's date when absent.
    std::optional<int64_t> payInterval;  // Days; the sheet's interval when absent.
    std::optional<std::string> deliver;  // mail, print, save or network; else the default route.
};

// Issues the documents in the order given and prints each one's number. Without a
// delivery the default route is used and named; a route without an installed service
// leaves the documents issued and says so on `err`.
int issue(const std::string& path, const IssueOptions& options, std::ostream& out, std::ostream& err);
// Unlocks an issued document (number kept, transcript written).
int unlock(const std::string& path, const std::string& uid, std::ostream& out, std::ostream& err);
// Sets the closing mark: open, settled or canceled; on an estimate also accepted (1) and
// declined (2).
int settle(const std::string& path, const std::string& uid, const std::string& mode, std::ostream& out,
           std::ostream& err);
// Lists the transcripts, newest first; with `exportFolder`, writes the export folder
// "Transcript" inside it and prints its path.
int transcripts(const std::string& path, const std::optional<std::string>& exportFolder, std::ostream& out,
                std::ostream& err);

}  // namespace brassline::issuecommands
