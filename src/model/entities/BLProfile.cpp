#include "model/entities/BLProfile.h"

#include <unicode/uloc.h>

#include "model/entities/ModelStrings.h"

namespace brassline {

void BLProfile::setupClass(EntityDescription& entity) {
    DefaultBehaviour behaviour;
    behaviour.defaultUID = kDefaultProfileUID;
    registerDefaultBehaviour(entity, std::move(behaviour));
}

void BLProfile::setup() {
    BLDocument::setup();
    char country[ULOC_COUNTRY_CAPACITY] = {};
    UErrorCode status = U_ZERO_ERROR;
    uloc_getCountry(uloc_getDefault(), country, sizeof(country), &status);
    if (U_SUCCESS(status) && country[0] != '\0') {
        setCountryCode(std::string(country));
    }
}

}  // namespace brassline
