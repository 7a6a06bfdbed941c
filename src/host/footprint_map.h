// Threat zones on the globe, as GeoJSON (RFC 7946) and as KML.
//
// A release gives up to two features: its footprint, when it is known where the wind blows from, and the circle of its
// threat distance, which holds for every wind. Positions are geodesic on the WGS 84 ellipsoid. Rings run
// counterclockwise and are closed; what crosses the 180th meridian is cut there, and what holds a pole follows the
// map's edge around it.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/batch_rows.h"
#include "host/scenario.h"
#include "host/screening_run.h"
#include "host/streamed_file.h"

namespace host {

using GeoRing = std::vector<GeoPosition>;  // the first position again at the end
// One or more polygons without holes.
using GeoArea = std::vector<GeoRing>;

// The longest threat distance that is drawn on a map, in metres. The formula's answers far beyond the model's range say
// nothing about a place.
inline constexpr double kLongestOnMap = 1'000'000;

// The footprint of a source at `at` with the wind from a compass direction. Empty when it is too long for a map.
GeoArea footprintOnGlobe(const Footprint& footprint, const GeoPosition& at, double windFrom);
// The circle of `radius` metres. Empty likewise.
GeoArea circleOnGlobe(double radius, const GeoPosition& at);

// A map file that grows by one release after the other.
class MapFile {
  public:
    enum class Kind { geojson, kml };

    // Throws HostError when the file cannot be written, as the other functions do.
    MapFile(Kind kind, std::string path);
    // Both features. A result without footprint adds nothing.
    void add(const Scenario& scenario, const ScreeningResult& result, const GeoPosition& at);
    // Ends the document and puts it in its place.
    void finish();

  private:
    Kind kind_;
    StreamedFile file_;
    bool any_ = false;
};

}  // namespace host
