#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "model/entities/BLBase.h"
#include "model/entities/gen/BLContainer.h"

namespace brassline {

class BLDocument;
class BLInvoice;
class BLSendable;

// An object of the item tree (parent/childs) that can be the default of its entity.
class BLContainer : public gen::BLContainer {
public:
    static void setupClass(EntityDescription& entity);

    // What a class says about its default object; registered from setupClass and looked
    // up along the superentities.
    struct DefaultBehaviour {
        std::optional<std::string> defaultUID;
        // Narrows the objects marked default (BLPaymentType prefers a plain type).
        std::function<std::vector<BLContainer*>(std::vector<BLContainer*>)> filterDefaultItems;
        // Completes the default found or made (BLCurrency names it after the locale).
        std::function<void(BLContainer&)> didFindDefault;
    };
    static void registerDefaultBehaviour(const EntityDescription& entity, DefaultBehaviour behaviour);
    static std::optional<std::string> defaultUID(const EntityDescription& entity);
    static std::vector<BLContainer*> filterDefaultItems(const EntityDescription& entity,
                                                        std::vector<BLContainer*> items);

    // The default object of the entity, found, or made when there is none (without undo,
    // posting "AddedDefaultItem"); nil before the document is ready for default values.
    static BLContainer* defaultItemForContext(ManagedObjectContext& context, const EntityDescription& entity);
    template <typename T>
    static T* defaultItemForContext(ManagedObjectContext& context) {
        return static_cast<T*>(defaultItemForContext(context, T::entityDescription()));
    }
    static void clearDefaultItemCache(ManagedObjectContext& context);

    // Marks or unmarks the default: siblings lose the mark, "ChangedDefault<Entity>" is posted.
    void setIsDefault(std::optional<bool> value) override;
    // Stores the flag only.
    void setDefault(bool value) { setPrimitiveIsDefault(value); }
    // The siblings whose mark setIsDefault removes, as a format and its arguments.
    virtual std::pair<std::string, std::vector<Value>> siblingsToRemoveDefaultPredicate() const;
    virtual void setupDefault() { setup(); }

    // The item tree.
    std::vector<BLContainer*> childsArray() const { return childs().toVector(); }
    std::vector<BLContainer*> children() const { return childsArray(); }
    virtual std::vector<BLContainer*> costsArray() const { return childsArray(); }
    void setChildsArray(const std::vector<BLContainer*>& values);
    void setChildren(const std::vector<BLContainer*>& values) { setChildsArray(values); }
    // Self, then the children.
    std::vector<BLContainer*> combinedArray() const;
    // The parent's children without self; empty without a parent.
    std::vector<BLContainer*> siblings() const;
    std::vector<BLContainer*> siblingsWithEntityName(std::string_view entityName) const;
    bool isRoot() const { return parent() == nullptr; }
    // Depth first over childs, self first when its entity name matches exactly.
    std::vector<BLContainer*> collectChildrenWithEntityName(std::string_view entityName) const;
    // The first object up the parent chain (self included) that is one.
    BLInvoice* invoice() const;
    BLSendable* sendable() const;
    BLDocument* document() const;
    BLInvoice* invoiceForMetrics() const { return invoice(); }

    // Announces a change of `key` on every object up the parent chain.
    virtual void notifyParentsForKey(std::string_view key);
};

}  // namespace brassline
