#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/Value.h"

namespace brassline {

// The command-line operations on a company file, apart from argument parsing so that
// tests call them directly. Each opens the file as a document (start-up steps, repair,
// recent list), writes its answer to `out` and its failure (naming the entity, key, uid
// or value at fault) to `err`, and answers the exit code: 0 on success, 1 for bad input
// or a refused file, 2 when a save fails, 3 for a URL command this build can't do yet.
// A failed command saves nothing: all KEY=VALUE pairs are checked before any object is
// touched.
namespace companyfile {

struct NewOptions {
    std::string vatID;
    bool taxable = true;
    bool useGrossPrices = false;
    // "NAME=PERCENT" entries of the quick set-up.
    std::vector<std::string> taxes;
    // Pattern lists by kind ("invoice", "documents.filename", ...) in place of the defaults.
    Value::Dictionary patterns;
};

struct FetchOptions {
    std::string predicate;
    std::vector<std::string> keys;
    // "key" or "key:desc".
    std::vector<std::string> sort;
    bool json = false;
};

int newFile(const std::string& path, const NewOptions& options, std::ostream& out, std::ostream& err);
int info(const std::string& path, bool json, std::ostream& out, std::ostream& err);
int insert(const std::string& path, const std::string& entity, const std::vector<std::string>& assignments,
           std::ostream& out, std::ostream& err);
int set(const std::string& path, const std::string& uid, const std::vector<std::string>& assignments, std::ostream& out,
        std::ostream& err);
int get(const std::string& path, const std::string& uid, const std::vector<std::string>& keyPaths, bool json,
        std::ostream& out, std::ostream& err);
int fetch(const std::string& path, const std::string& entity, const FetchOptions& options, std::ostream& out,
          std::ostream& err);
int remove(const std::string& path, const std::string& uid, std::ostream& out, std::ostream& err);
// Refuses a target inside a company package, and an existing one unless `force`.
int exportSQLite(const std::string& path, const std::string& outPath, std::ostream& out, std::ostream& err,
                 bool force = false);
// Runs "brassline://<command>?<query>" on the company file: the document's commands,
// then the application's (URLCommands.h); saves when a command changed data. A
// "document" query must name this file's identifier. An unknown command answers "The
// command <command> is not supported".
int url(const std::string& path, const std::string& url, std::ostream& out, std::ostream& err);
// The recent company files, newest first: path, identifier, last opened, and "missing"
// when the file is gone; `json` prints one object per line.
int recent(bool json, std::ostream& out, std::ostream& err);

}  // namespace companyfile

}  // namespace brassline
