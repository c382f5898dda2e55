// Fuzzes the layout archive decoder: arbitrary bytes are loaded as a layout. Whatever
// loads must archive again, and that archive must load to the same layout (by the
// comparison representation) and archive to the same archive again. No input may crash,
// hang or grow memory without bound.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "core/Log.h"
#include "layout/LayoutArchive.h"
#include "layout/LayoutClasses.h"

namespace {

using brassline::Bytes;
using brassline::LayoutRecord;
using brassline::RestoredLayout;
using brassline::Value;

void quietLog() {
    static const bool once = [] {
        brassline::setLogEchoesToStandardError(false);
        brassline::setLogFilePath("");
        brassline::registerLayoutClasses();
        return true;
    }();
    (void)once;
}

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "layout_archive_fuzz: %s\n", what);
    std::abort();
}

Value compareList(const std::vector<LayoutRecord>& records) {
    Value::Array list;
    for (const LayoutRecord& record : records) {
        list.push_back(record.view ? Value(record.view->compareDictionary()) : Value());
    }
    return Value(std::move(list));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    quietLog();
    const RestoredLayout first = brassline::restoreLayoutArchive(Bytes(data, data + size));
    if (!first.error.empty()) {
        if (!first.archive.pages.empty() ||
            first.archive.tableSections.size() != brassline::layoutTableOrder().size()) {
            fail("a failed load left more than the empty layout");
        }
        return 0;
    }
    const Bytes written = brassline::writeLayoutArchive(first.archive);
    const RestoredLayout second = brassline::restoreLayoutArchive(written);
    if (!second.error.empty()) {
        fail("our own archive does not load");
    }
    if (compareList(second.archive.pages) != compareList(first.archive.pages) ||
        compareList(second.archive.tableSections) != compareList(first.archive.tableSections)) {
        fail("a layout changed on its way through the archive");
    }
    // One load settles everything it changes: from then on the archive stands still. It is
    // compared as read, not byte for byte: libplist's binary writer merges equal data
    // blobs depending on their addresses.
    if (Value::fromPropertyList(brassline::writeLayoutArchive(second.archive)) != Value::fromPropertyList(written)) {
        fail("a second trip changed the archive");
    }
    return 0;
}
