#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "model/EntityDescription.h"
#include "model/entities/gen/BrasslineModel.h"

namespace brassline {
namespace {

// The entity tree transcribed from the object model's description. Attributes are
// "name:type" (a trailing "~" marks transient ones); relationships are
// "name:kind:Destination:inverse" with kind 1 (to-one), n (to-many) or o (ordered
// to-many) and "-" for no inverse.
struct EntityRow {
    const char* name;
    const char* parent;
    bool isAbstract;
    const char* attributes;
    const char* relationships;
};

const EntityRow kEntities[] = {
    {"Base", "", true, "uid:string name:string notes:string archived:bool doNotClone:bool checkSum:string",
     "source:1:Base:derivates derivates:n:Base:source"},
    {"Container", "Base", true, "isDefault:bool", "parent:1:Container:childs childs:o:Container:parent"},
    {"ClientGroup", "Container", false, "", "clients:n:Client:clientGroup taxRules:n:TaxRule:clientGroup"},
    {"Currency", "Container", false, "code:string symbol:string format:string rate:decimal",
     "documents:n:Document:currency"},
    {"ItemGroup", "Container", false, "revenueAccount:string",
     "taxGroup:1:TaxGroup:itemGroups costs:n:Cost:itemGroup importRules:n:ImportRule:itemGroup"},
    {"PaymentType", "Container", false,
     "type:string conditions:data iban:string bic:string excludeFromDirectDebit:bool excludeFromStatistics:bool",
     "documents:n:Document:paymentType"},
    {"SmartList", "Container", false, "predicate:string", ""},
    {"TaxGroup", "Container", false, "shortName:string", "itemGroups:n:ItemGroup:taxGroup taxRules:n:TaxRule:taxGroup"},
    {"Thread", "Container", false, "", "client:1:Client:-"},
    {"Preference", "Container", false, "type:string string:string number:decimal date:date data:data", ""},
    {"MetaValue", "Preference", false, "", "document:1:Document:metaValues"},
    {"Document", "Container", true,
     "dateCreation:date subject:string internalReference:string toDo:bool payInterval:int16 rate:decimal "
     "useGrossPrices:bool",
     "parentDocument:1:Document:documents documents:n:Document:parentDocument contact:1:Contact:assignedDocuments "
     "currency:1:Currency:documents layout:1:Layout:documents estimateLayout:1:Layout:estimateDocuments "
     "statementLayout:1:Layout:statementDocuments paymentType:1:PaymentType:documents "
     "teamMember:1:TeamMember:memberDocuments customValues:n:CustomValue:document "
     "metaValues:n:MetaValue:document documentLabels:n:DocumentLabel:documents"},
    {"Contact", "Document", false,
     "salutation:string title:string firstName:string middleName:string lastName:string organization:string "
     "department:string address:string zip:string city:string state:string countryCode:string email:string "
     "phoneNumber:string clientID:string taxID:string taxNumber:string iban:string bic:string "
     "sepaCreditorID:string sepaMandateID:string sepaMandateDate:date preferredSendType:int16 "
     "sendPluginIdentifier:string",
     "language:1:Language:contacts assignedDocuments:n:Document:contact"},
    {"Client", "Contact", false, "id:string", "clientGroup:1:ClientGroup:clients"},
    {"Profile", "Contact", false, "", ""},
    {"TeamMember", "Contact", false, "signature:data me:bool~", "memberDocuments:n:Document:teamMember"},
    {"ExternalFile", "Document", false, "mailWithParentDocument:bool printWithParentDocument:bool",
     "storage:1:ExternalFileStorage:externalFile"},
    {"ExternalFileGroup", "Document", false, "mailWithParentDocument:bool printWithParentDocument:bool", ""},
    {"Language", "Document", false, "", "contacts:n:Contact:language costs:n:Cost:language"},
    {"Project", "Document", false, "number:string", ""},
    {"Financial", "Document", true, "", ""},
    {"Payment", "Financial", false, "amount:decimal", ""},
    {"Sendable", "Financial", true,
     "dateSent:date dateDue:date customRangeStart:date customRangeEnd:date useCustomRange:bool completeMode:int16 "
     "deliveryType:int16 discount:decimal lead:string footnote:string reference:string cachedCost:decimal "
     "cachedCostWithTaxes:decimal cachedBalance:decimal project:string",
     "storage:1:SendableStorage:sendable"},
    {"Estimate", "Sendable", false, "", ""},
    {"FollowUp", "Sendable", false, "", "followUpType:1:FollowUpType:followUps"},
    {"SendableTemplate", "Sendable", false, "updateFromCatalogItems:bool", ""},
    {"Invoice", "Sendable", false, "recurring:bool recurringInterval:int16 recurringMode:int16",
     "parentInvoice:1:Invoice:childInvoices childInvoices:n:Invoice:parentInvoice"},
    {"PartialInvoice", "Invoice", false, "partialPortion:string", ""},
    {"PermanentInvoice", "Invoice", false, "dateEnd:date", ""},
    {"PermanentInvoiceRepetition", "PermanentInvoice", false, "sequence:int16", ""},
    {"Item", "Document", true,
     "parentURI:string~ sortIndex:int64~ titleName:string~ subtotalName:string~ groupString:string~ "
     "sortOrder:int64~",
     "image:1:Image:items"},
    {"Cost", "Item", false,
     "quantity:decimal unitPrice:decimal discount:decimal costPrice:decimal weight:decimal unit:string "
     "itemNumber:string ean:string optional:bool",
     "itemGroup:1:ItemGroup:costs taxRule:1:TaxRule:costs language:1:Language:costs"},
    {"CatalogItem", "Cost", false, "comment:string defaultQuantity:decimal unitPriceGross:decimal",
     "files:o:CatalogFileStorage:catalogItem"},
    {"DynamicCost", "Cost", false, "cost:decimal pluginIdentifier:string rangeType:int16", ""},
    {"SummaryCost", "Cost", false, "displayType:int16 subtotal:bool", ""},
    {"Group", "Item", false, "excludeFromTotal:bool showSubTotal:bool", ""},
    {"PageBreak", "Item", false, "", ""},
    {"SectionEnd", "Item", false, "", ""},
    {"SubTotal", "Item", false, "", ""},
    {"Note", "Item", false, "", ""},
    {"InternalNote", "Note", false, "", ""},
    {"Title", "Item", false, "", ""},
    {"Option", "Title", false, "", ""},
    {"CustomField", "Base", false, "", "set:1:CustomFieldSet:fields values:n:CustomValue:field"},
    {"CustomFieldSet", "Base", false, "", "fields:o:CustomField:set"},
    {"CustomValue", "Base", false, "", "document:1:Document:customValues field:1:CustomField:values"},
    {"DocumentLabel", "Base", false, "color:string type:string", "documents:n:Document:documentLabels"},
    {"FollowUpType", "Base", false,
     "conditions:data rules:data imageName:string includeParentInMail:bool ungroupItems:bool "
     "useCustomNumbering:bool payInterval:int16",
     "followUps:n:FollowUp:followUpType layout:1:Layout:followUps"},
    {"Image", "Base", false, "data:data", "items:n:Item:image"},
    {"ImportRule", "Base", false, "field:string operator:string", "itemGroup:1:ItemGroup:importRules"},
    {"Layout", "Base", false, "classes:string paperFormat:string",
     "documents:n:Document:layout estimateDocuments:n:Document:estimateLayout "
     "statementDocuments:n:Document:statementLayout followUps:n:FollowUpType:layout storage:1:LayoutStorage:layout"},
    {"TaxRule", "Base", false,
     "tax1mode:int16 tax2mode:int16 tax3mode:int16 tax1name:string tax2name:string tax3name:string "
     "tax1value:decimal tax2value:decimal tax3value:decimal taxExemptionCode:string",
     "clientGroup:1:ClientGroup:taxRules taxGroup:1:TaxGroup:taxRules costs:n:Cost:taxRule"},
    {"Transcript", "Base", false, "date:date operation:string type:string recordData:data",
     "storage:1:SendableStorage:transcript"},
    {"CatalogFileStorage", "Base", false, "attach:bool data:data", "catalogItem:1:CatalogItem:files"},
    {"ExternalFileStorage", "Base", false, "data:data", "externalFile:1:ExternalFile:storage"},
    {"LayoutStorage", "Base", false, "data:data", "layout:1:Layout:storage"},
    {"SendableStorage", "Base", false, "data:data", "sendable:1:Sendable:storage transcript:1:Transcript:storage"},
};

std::set<std::string> words(const char* text) {
    std::set<std::string> result;
    std::istringstream stream(text);
    std::string word;
    while (stream >> word) {
        result.insert(word);
    }
    return result;
}

TEST(EntityModelTest, GeneratedModelMatchesTheEntityTable) {
    const ManagedObjectModel& model = gen::brasslineModel();
    EXPECT_EQ(model.entities().size(), std::size(kEntities));
    for (const EntityRow& row : kEntities) {
        SCOPED_TRACE(row.name);
        const EntityDescription* entity = model.entityNamed(row.name);
        ASSERT_NE(entity, nullptr);
        EXPECT_EQ(entity->managedObjectClassName(), std::string("BL") + row.name);
        EXPECT_EQ(entity->superentity() != nullptr ? entity->superentity()->name() : std::string(), row.parent);
        EXPECT_EQ(entity->isAbstract(), row.isAbstract);

        std::set<std::string> attributes;
        for (const AttributeDescription* attribute : entity->attributes()) {
            if (attribute->entity == entity) {
                attributes.insert(attribute->name + ":" + std::string(attributeTypeName(attribute->type)) +
                                  (attribute->isTransient ? "~" : ""));
            }
        }
        EXPECT_EQ(attributes, words(row.attributes));

        std::set<std::string> relationships;
        for (const RelationshipDescription* relationship : entity->relationships()) {
            if (relationship->entity != entity) {
                continue;
            }
            std::string kind = !relationship->isToMany ? "1" : relationship->isOrdered ? "o" : "n";
            relationships.insert(relationship->name + ":" + kind + ":" + relationship->destinationName + ":" +
                                 (relationship->inverseName.empty() ? "-" : relationship->inverseName));
        }
        EXPECT_EQ(relationships, words(row.relationships));
    }
}

// Owners take their storage, their item tree and their custom and meta values with them;
// to-one inverses only let go.
TEST(EntityModelTest, DeleteRulesCascadeOnlyToOwnedObjects) {
    const ManagedObjectModel& model = gen::brasslineModel();
    const std::set<std::string> cascading = {"Container.childs",     "Document.customValues", "Document.metaValues",
                                             "ExternalFile.storage", "Sendable.storage",      "Layout.storage",
                                             "CatalogItem.files",    "Transcript.storage"};
    for (const auto& entity : model.entities()) {
        for (const RelationshipDescription* relationship : entity->relationships()) {
            if (relationship->entity != entity.get()) {
                continue;
            }
            std::string key = entity->name() + "." + relationship->name;
            SCOPED_TRACE(key);
            EXPECT_EQ(relationship->deleteRule, cascading.count(key) != 0 ? DeleteRule::Cascade : DeleteRule::Nullify);
        }
    }
}

}  // namespace
}  // namespace brassline
