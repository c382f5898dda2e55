#include "lifecycle/PlaceHolderRoutes.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cmath>

#include "core/BLParser.h"
#include "core/Decimal.h"
#include "core/Log.h"
#include "lifecycle/BLPlaceHolderWrapper.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLProfile.h"
#include "model/entities/BLSendable.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

namespace {

constexpr double kKilometresToMiles = 0.621371;

DrivingDistanceCalculator& installedCalculator() {
    static DrivingDistanceCalculator calculator;
    return calculator;
}

// The client of the line's document; a line outside a document asks its own parents.
const BLContact* clientOf(const BLCost& cost) {
    if (const BLSendable* sendable = cost.sendable()) {
        return sendable->client();
    }
    return cost.client();
}

// A contact's one-line address; nothing for a contact without street, code or city
// (an empty address can still yield its separators).
std::optional<std::string> addressOf(const BLContact* contact) {
    std::optional<std::string> line = contact != nullptr ? contact->singleLinePostalAddress() : std::nullopt;
    if (!line ||
        std::none_of(line->begin(), line->end(), [](unsigned char c) { return std::isalnum(c) || c >= 0x80; })) {
        return std::nullopt;
    }
    return line;
}

// The firm's profile, looked up only: asking for a route must not create it.
const BLContact* senderOf(const BLCost& cost) {
    ManagedObjectContext* context = cost.managedObjectContext();
    if (context == nullptr) {
        return nullptr;
    }
    return static_cast<BLProfile*>(context->objectWithUid(BLProfile::entityDescription(), kDefaultProfileUID));
}

// The text as the contact's full address when it is part of it; else unchanged.
std::string extendedAddress(const std::string& text, const BLContact* first, const BLContact* second) {
    for (const BLContact* contact : {first, second}) {
        if (contact == nullptr) {
            continue;
        }
        std::string extended = contact->extendAddressIfPossible(text);
        if (extended != text) {
            return extended;
        }
    }
    return text;
}

}  // namespace

void setDrivingDistanceCalculator(DrivingDistanceCalculator calculator) {
    installedCalculator() = std::move(calculator);
}

void calculateDrivingDistanceFromCity(const std::string& from, const std::string& to,
                                      const DrivingDistanceCompletion& completion) {
    if (const DrivingDistanceCalculator& calculator = installedCalculator()) {
        calculator(from, to, completion);
        return;
    }
    static std::atomic<bool> told{false};
    if (!told.exchange(true)) {
        logMessage("No map service on this platform: driving distances are not calculated");
    }
    if (completion) {
        completion(std::nullopt);
    }
}

DistanceUnit distanceUnitOf(const BLCost& cost) {
    const std::optional<std::string> unit = cost.unit();
    if (!unit) {
        return DistanceUnit::none;
    }
    std::string key = asciiLowercase(*unit);
    while (!key.empty() && (key.back() == '.' || key.back() == ' ')) {
        key.pop_back();
    }
    for (const char* name : {"km", "kilometer", "kilometers", "kilometre", "kilometres", "kilometern"}) {
        if (key == name) {
            return DistanceUnit::kilometres;
        }
    }
    for (const char* name : {"mi", "mile", "miles", "meile", "meilen"}) {
        if (key == name) {
            return DistanceUnit::miles;
        }
    }
    return DistanceUnit::none;
}

std::optional<int64_t> routeQuantity(double metres, DistanceUnit unit) {
    if (unit == DistanceUnit::none || !(metres >= 0) || !std::isfinite(metres)) {
        return std::nullopt;
    }
    double distance = metres / 1000.0 * 2;
    if (unit == DistanceUnit::miles) {
        distance *= kKilometresToMiles;
    }
    return static_cast<int64_t>(std::trunc(distance));
}

std::vector<std::string> preProcessPlaceHolderWrapper(const BLCost& cost, const BLPlaceHolderWrapper& wrapper) {
    (void)wrapper;
    std::vector<std::string> addresses;
    if (distanceUnitOf(cost) == DistanceUnit::none) {
        return addresses;
    }
    for (std::optional<std::string> address : {addressOf(senderOf(cost)), addressOf(clientOf(cost))}) {
        if (address) {
            addresses.push_back(*address);
        }
    }
    return addresses;
}

void postProcessPlaceHolderWrappers(BLCost& cost, const std::vector<BLPlaceHolderWrapper*>& wrappers) {
    const DistanceUnit unit = distanceUnitOf(cost);
    if (unit == DistanceUnit::none) {
        return;
    }
    BLPlaceHolderWrapper* route = nullptr;
    for (BLPlaceHolderWrapper* wrapper : wrappers) {
        if (wrapper != nullptr && wrapper->insertedStrings().size() == 2) {
            route = wrapper;
            break;
        }
    }
    if (route == nullptr) {
        return;
    }
    const BLContact* sender = senderOf(cost);
    const BLContact* client = clientOf(cost);
    const std::string origin = route->insertedStrings().front();
    const std::string destination = route->insertedStrings().back();
    const std::string from = extendedAddress(origin, sender, client);
    const std::string to = extendedAddress(destination, client, sender);
    // The wrapper lives for one dialog only; the answer works on a copy of it.
    BLPlaceHolderWrapper target = *route;
    BLCost* line = &cost;
    calculateDrivingDistanceFromCity(from, to, [=](std::optional<double> metres) mutable {
        if (!metres) {
            logMessage("No route from %@ to %@: quantity and text stay as they are", from, to);
            return;
        }
        std::optional<int64_t> quantity = routeQuantity(*metres, unit);
        if (!quantity) {
            return;
        }
        line->setQuantity(Decimal(*quantity));
        target.replaceString(origin, from);
        if (destination != origin) {
            target.replaceString(destination, to);
        }
        NotificationCenter::defaultCenter().postNotificationName(kRefreshAllItemsNotification);
    });
}

}  // namespace brassline
