#include "store/CommandFile.h"

#include <memory>
#include <ostream>
#include <utility>

#include "model/ManagedObjectContext.h"
#include "store/BLDoc.h"
#include "store/BLDocumentController.h"

namespace brassline {

std::optional<CommandFile> CommandFile::open(const std::string& path, std::ostream& err) {
    BLDocumentController& controller = BLDocumentController::shared();
    const bool owned = controller.documentForURL(path) == nullptr;
    std::string error;
    BLDoc* document = controller.openDocumentWithContentsOfURL(path, &error);
    if (document == nullptr) {
        err << "brassline: " << error << "\n";
        return std::nullopt;
    }
    return CommandFile(document, owned);
}

std::optional<CommandFile> CommandFile::create(const std::string& path, const Value::Dictionary& setup,
                                               std::ostream& err) {
    std::string error;
    std::unique_ptr<BLDoc> made = BLDoc::create(path, setup, &error);
    if (!made) {
        err << "brassline: " << error << "\n";
        return std::nullopt;
    }
    BLDocumentController& controller = BLDocumentController::shared();
    BLDoc* document = controller.addDocument(std::move(made));
    controller.logURL(path);
    return CommandFile(document, true);
}

CommandFile::CommandFile(CommandFile&& other) noexcept
    : m_document(std::exchange(other.m_document, nullptr)), m_owned(std::exchange(other.m_owned, false)) {}

CommandFile& CommandFile::operator=(CommandFile&& other) noexcept {
    if (this != &other) {
        close();
        m_document = std::exchange(other.m_document, nullptr);
        m_owned = std::exchange(other.m_owned, false);
    }
    return *this;
}

CommandFile::~CommandFile() {
    close();
}

void CommandFile::close() {
    if (m_document != nullptr && m_owned) {
        BLDocumentController::shared().closeDocument(m_document);
    }
    m_document = nullptr;
}

bool CommandFile::save(std::ostream& err) {
    std::string error;
    if (!m_document->save(&error)) {
        err << "brassline: the company file can't be saved: " << error << "\n";
        return false;
    }
    return true;
}

ManagedObject* CommandFile::objectWithUid(const std::string& uid, std::ostream& err) {
    ManagedObjectContext& objects = context();
    const EntityDescription* base = objects.entityNamed("Base");
    ManagedObject* object = base != nullptr ? objects.objectWithUid(*base, uid) : nullptr;
    if (object == nullptr) {
        err << "brassline: no object with uid '" << uid << "'\n";
    }
    return object;
}

ManagedObjectContext& CommandFile::context() {
    return m_document->managedObjectContext();
}

SQLiteStore& CommandFile::store() {
    return m_document->store();
}

}  // namespace brassline
