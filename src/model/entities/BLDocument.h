#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "model/entities/BLContainer.h"
#include "model/entities/gen/BLDocument.h"

namespace brassline {

class BLClient;
class BLProfile;
class BLProject;

// A node of the document tree (client, project, invoice, payment, attached file, line):
// walks up and down the tree, the rules of who may hold whom, meta values and custom fields.
class BLDocument : public gen::BLDocument {
public:
    BLDocument();
    ~BLDocument() override;
    static void setupClass(EntityDescription& entity);

    // Up the parent documents, self included; nil when the chain loops.
    BLClient* client() const;
    BLProject* project() const;
    // The root of the parent documents (self without a parent); stops where a chain loops.
    BLDocument* topmostParentDocument() const;
    // The default profile.
    BLProfile* sender() const;
    std::string customFieldPrefix() const;
    // Invoices and estimates below, counted recursively and cached under "documentCount".
    int64_t countDocuments() const;
    int64_t sortDocuments() const { return 10000 - countDocuments(); }
    virtual int64_t addToDocumentsCount() const { return 0; }
    // The own rate, else the parent document's.
    std::optional<Decimal> effectiveRate() const;

    // Document walks (depth first over documents, guarded against loops).
    std::vector<BLDocument*> collectDocumentsWithEntityName(std::string_view entityName) const;
    std::vector<BLDocument*> collectExternalFiles() const;
    std::vector<BLDocument*> collectDrafts() const;
    std::vector<BLDocument*> followUps() const;
    // Whether this document is an ancestor of `document`.
    bool isParentOf(const BLDocument* document) const;
    bool isDescendantOf(const BLDocument* document) const;
    bool hasParentDocumentOfClass(std::string_view className) const;
    // The text in the language of the contact, else of the client; unchanged when neither
    // has a language or its table has no entry.
    std::string translateString(std::string_view text) const;

    // The class names that may be children through documents.
    virtual std::vector<std::string> allowedDocuments() const { return {}; }
    virtual bool allowsDocuments(const std::vector<BLDocument*>& candidates) const;
    // The first document from this one upward that accepts the candidate.
    BLDocument* allowedParentForDocument(BLDocument* candidate) const;

    // Moves the document in the tree; ignores a value that would make a loop.
    void setParentDocument(brassline::BLDocument* value) override;
    void setClient(BLDocument* value);
    void setProject(BLDocument* value);
    void setContact(brassline::BLContact* value) override;
    // Drops any child equal to this document anywhere below; a sendable also checks its
    // contact against its client.
    virtual void validateContacts();

    void setup() override;
    bool canDelete() const override { return documents().empty(); }
    std::vector<std::string> skippedPropertiesForDuplicate() const override;
    void resetCaches() override;
    void resetCachesDown();
    void notifyParentsForKey(std::string_view key) override;
    void notifyChildsForKey(std::string_view key);

    // Plug-in fields kept in BLMetaValue objects; a null value removes the field.
    Value metaValueForKey(std::string_view key) const;
    void setMetaValue(const Value& value, std::string_view key);
    void setMetaValue(const Value& value, std::string_view key, bool doNotClone);

    // Custom fields: values by the field's name, in the set of this document class.
    virtual std::string customFieldSetIdentifier() const { return entityName(); }
    Value valueForCustomField(std::string_view key) const;
    void setValueForCustomField(const Value& value, std::string_view key);
    Value valueForUndefinedKey(std::string_view key) const override;
    void setValueForUndefinedKey(const Value& value, std::string_view key) override;

protected:
    // The base rule of setParentDocument, after the sync and loop checks.
    void applyParentDocument(BLDocument* value);

private:
    class CustomFieldAccessor;
    void resetCachesGuarded(std::unordered_set<const BLDocument*>& visited);
    int64_t countDocuments(std::unordered_set<const BLDocument*>& visited) const;

    mutable std::unique_ptr<CustomFieldAccessor> m_customFieldAccessor;
};

}  // namespace brassline
