#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace brassline {

class BLCost;
class BLPlaceHolderWrapper;

// Receives a route's length in metres, or nothing when no route was found.
using DrivingDistanceCompletion = std::function<void(std::optional<double> metres)>;
// A routing service: from and to are free address texts. It may answer later, but on the
// main thread and while the line it was asked for still exists.
using DrivingDistanceCalculator =
    std::function<void(const std::string& from, const std::string& to, DrivingDistanceCompletion completion)>;

// Installs the routing service (empty: none, the default; tests install a fake).
void setDrivingDistanceCalculator(DrivingDistanceCalculator calculator);
// Asks the installed service. Without one the completion gets no route at once, and the
// first such call in the process says so in the log.
void calculateDrivingDistanceFromCity(const std::string& from, const std::string& to,
                                      const DrivingDistanceCompletion& completion);

enum class DistanceUnit { none, kilometres, miles };
// The unit of a line as a distance ("km", "Kilometer", "mi", "miles", "Meilen"; any case).
DistanceUnit distanceUnitOf(const BLCost& cost);
// The quantity for a route there and back: metres / 1000 doubled, in miles times
// 0.621371, truncated towards zero. Nothing for no distance unit or a negative length.
std::optional<int64_t> routeQuantity(double metres, DistanceUnit unit);

// For a distance line: the sender's and the client's single-line addresses where present;
// otherwise nothing.
std::vector<std::string> preProcessPlaceHolderWrapper(const BLCost& cost, const BLPlaceHolderWrapper& wrapper);
// For a distance line: the first wrapper with exactly two inserted strings is a route
// (origin, destination), completed through the sender's and client's addresses. When the
// service answers, the quantity becomes routeQuantity, the two texts are replaced by the
// completed addresses and "BLRefreshAllItems" is posted; no route leaves all as it was.
void postProcessPlaceHolderWrappers(BLCost& cost, const std::vector<BLPlaceHolderWrapper*>& wrappers);

}  // namespace brassline
