#include "host/footprint_map.h"

#include <GeographicLib/Geodesic.hpp>
#include <GeographicLib/GeodesicLine.hpp>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "host/screen_report.h"
#include "host/screen_svg.h"

namespace host {
namespace {

using GeographicLib::Geodesic;
using nlohmann::ordered_json;

constexpr int kCircleCorners = 72;
constexpr double kPole = 90 - 1e-9;  // from here on a longitude says nothing

double turned(double from, double to) {
    return std::remainder(to - from, 360);
}

// The area's sign: positive when the ring runs counterclockwise on the map.
double area(const GeoRing& ring) {
    double sum = 0;
    for (std::size_t i = 0; i + 1 < ring.size(); ++i) {
        sum += ring[i].longitude * ring[i + 1].latitude - ring[i + 1].longitude * ring[i].latitude;
    }
    return sum / 2;
}

// Rounded to 1e-7 degrees, about a centimetre; without repeated corners, closed, counterclockwise. Empty when nothing
// is left.
GeoRing closed(const GeoRing& ring) {
    GeoRing result;
    for (GeoPosition p : ring) {
        p.latitude = std::clamp(std::round(p.latitude * 1e7) / 1e7, -90.0, 90.0) + 0.0;
        p.longitude = std::clamp(std::round(p.longitude * 1e7) / 1e7, -180.0, 180.0) + 0.0;
        if (result.empty() || p.latitude != result.back().latitude || p.longitude != result.back().longitude) {
            result.push_back(p);
        }
    }
    while (result.size() > 1 && result.front().latitude == result.back().latitude &&
           result.front().longitude == result.back().longitude) {
        result.pop_back();
    }
    if (result.size() < 3) {
        return {};
    }
    result.push_back(result.front());
    const double size = area(result);
    if (size == 0) {
        return {};
    }
    if (size < 0) {
        std::reverse(result.begin(), result.end());
    }
    return result;
}

// Cuts a ring whose longitudes run on past 180 degrees along the meridian `edge`; keeps the part east or west of it.
// Where the ring crosses the meridian more than twice, the parts on one side are separate rings: crossings are joined
// in pairs from south to north.
std::vector<GeoRing> sideOf(const GeoRing& ring, double edge, bool east) {
    const auto inside = [&](const GeoPosition& p) { return east ? p.longitude > edge : p.longitude < edge; };
    const std::size_t count = ring.size();
    std::size_t start = 0;
    while (start < count && inside(ring[start])) {
        ++start;
    }
    if (start == count) {
        return {ring};
    }
    struct Chain {
        GeoRing points;  // from crossing to crossing
        bool used = false;
    };
    std::vector<Chain> chains;
    bool open = false;
    for (std::size_t i = 0; i < count; ++i) {
        const GeoPosition& a = ring[(start + i) % count];
        const GeoPosition& b = ring[(start + i + 1) % count];
        if (inside(a) != inside(b)) {
            const double part = (edge - a.longitude) / (b.longitude - a.longitude);
            const GeoPosition crossing{a.latitude + part * (b.latitude - a.latitude), edge};
            if (!open) {
                chains.emplace_back();
            }
            chains.back().points.push_back(crossing);
            open = !open;
        }
        if (inside(b)) {
            chains.back().points.push_back(b);
        }
    }
    // Ends along the meridian, from south to north: each pair bounds a stretch of it that lies inside the ring.
    struct End {
        double latitude;
        std::size_t chain;
        bool first;
    };
    std::vector<End> ends;
    for (std::size_t i = 0; i < chains.size(); ++i) {
        ends.push_back({chains[i].points.front().latitude, i, true});
        ends.push_back({chains[i].points.back().latitude, i, false});
    }
    std::sort(ends.begin(), ends.end(), [](const End& a, const End& b) { return a.latitude < b.latitude; });
    std::vector<std::size_t> next(chains.size(), 0);  // the chain that begins where this one's end leads
    for (std::size_t i = 0; i + 1 < ends.size(); i += 2) {
        const End& from = ends[i].first ? ends[i + 1] : ends[i];
        const End& to = ends[i].first ? ends[i] : ends[i + 1];
        next[from.chain] = to.chain;
    }
    std::vector<GeoRing> rings;
    for (std::size_t i = 0; i < chains.size(); ++i) {
        GeoRing joined;
        for (std::size_t at = i; !chains[at].used; at = next[at]) {
            chains[at].used = true;
            joined.insert(joined.end(), chains[at].points.begin(), chains[at].points.end());
        }
        if (!joined.empty()) {
            rings.push_back(std::move(joined));
        }
    }
    return rings;
}

// A ring that runs once around a pole, `turn` degrees, as one that begins at the 180th meridian, and follows the map's
// edge to the pole and back.
GeoRing aroundPole(const GeoRing& ring, double turn) {
    const auto band = [](double longitude) { return std::floor((longitude + 180) / 360); };
    GeoRing twice = ring;
    for (GeoPosition p : ring) {
        p.longitude += turn;
        twice.push_back(p);
    }
    std::size_t before = 0;
    while (before + 1 < ring.size() && band(twice[before].longitude) == band(twice[before + 1].longitude)) {
        ++before;
    }
    const GeoPosition& a = twice[before];
    const GeoPosition& b = twice[before + 1];
    const double edge = -180 + 360 * std::max(band(a.longitude), band(b.longitude));
    const double part = std::clamp((edge - a.longitude) / (b.longitude - a.longitude), 0.0, 1.0);
    const double latitude = a.latitude + part * (b.latitude - a.latitude);
    const double pole = latitude > 0 ? 90 : -90;
    GeoRing result{{latitude, edge}};
    result.insert(result.end(), twice.begin() + static_cast<std::ptrdiff_t>(before + 1),
                  twice.begin() + static_cast<std::ptrdiff_t>(before + 1 + ring.size()));
    result.push_back({latitude, edge + turn});
    result.push_back({pole, edge + turn});
    result.push_back({pole, edge});
    return result;
}

// The corners of a zone as polygons of the map.
GeoArea onMap(const GeoRing& corners) {
    GeoRing ring;  // longitudes run on
    for (std::size_t i = 0; i < corners.size(); ++i) {
        const GeoPosition& p = corners[i];
        if (std::fabs(p.latitude) < kPole) {
            const double before = ring.empty() ? p.longitude : ring.back().longitude;
            ring.push_back({p.latitude, before + turned(before, p.longitude)});
            continue;
        }
        // A pole is a whole edge of the map: there, from the last corner's meridian to the next one's.
        const GeoPosition& last = corners[(i + corners.size() - 1) % corners.size()];
        const GeoPosition& next = corners[(i + 1) % corners.size()];
        const double before = ring.empty() ? last.longitude : ring.back().longitude;
        ring.push_back({p.latitude, before});
        ring.push_back({p.latitude, before + turned(before, next.longitude)});
    }
    const double around = ring.back().longitude + turned(ring.back().longitude, ring.front().longitude);
    if (const double turn = around - ring.front().longitude; std::fabs(turn) > 180) {
        ring = aroundPole(ring, turn);
    }
    const auto [west, east] = std::minmax_element(
        ring.begin(), ring.end(), [](const auto& a, const auto& b) { return a.longitude < b.longitude; });
    const int first = static_cast<int>(std::floor((west->longitude + 180) / 360));
    const int last = static_cast<int>(std::floor((east->longitude + 180) / 360));
    GeoArea result;
    for (int turn = first; turn <= last; ++turn) {
        const double left = -180 + 360.0 * turn;
        for (const GeoRing& part : sideOf(ring, left, true)) {
            for (GeoRing piece : sideOf(part, left + 360, false)) {
                for (GeoPosition& p : piece) {
                    p.longitude -= 360.0 * turn;
                }
                if (const GeoRing whole = closed(piece); !whole.empty()) {
                    result.push_back(whole);
                }
            }
        }
    }
    return result;
}

GeoPosition away(const GeoPosition& from, double azimuth, double meters) {
    GeoPosition to;
    Geodesic::WGS84().Direct(from.latitude, from.longitude, azimuth, meters, to.latitude, to.longitude);
    return to;
}

ordered_json coordinates(const GeoRing& ring) {
    ordered_json list = ordered_json::array();
    for (const GeoPosition& p : ring) {
        list.push_back(ordered_json::array({p.longitude, p.latitude}));
    }
    return list;
}

// What a reader of the map may ask about a zone.
ordered_json properties(const Scenario& scenario, const ScreeningResult& result, const GeoPosition& at,
                        std::string_view kind) {
    ordered_json list = {{"name", titleOf(scenario)}, {"zone", std::string(kind)}};
    for (const ScenarioField& field : scenarioFields()) {
        if (std::string value = scenarioValue(scenario, field); !value.empty()) {
            list[std::string(field.name)] = value;
        }
    }
    list["latitude"] = at.latitude;
    list["longitude"] = at.longitude;
    list["threat-distance"] = result.distance;
    list["threat-unit"] = scenario.units == "km" ? "km" : "miles";
    list["threat-meters"] = result.footprint->distance;
    return list;
}

std::string geojsonFeature(const ordered_json& properties, const GeoArea& area) {
    ordered_json geometry = nullptr;
    if (area.size() == 1) {
        geometry = {{"type", "Polygon"}, {"coordinates", ordered_json::array({coordinates(area.front())})}};
    } else if (!area.empty()) {
        geometry = {{"type", "MultiPolygon"}, {"coordinates", ordered_json::array()}};
        for (const GeoRing& ring : area) {
            geometry["coordinates"].push_back(ordered_json::array({coordinates(ring)}));
        }
    }
    const ordered_json feature = {{"type", "Feature"}, {"properties", properties}, {"geometry", geometry}};
    return feature.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

std::string kmlPolygon(const GeoRing& ring) {
    std::string text = "<Polygon><outerBoundaryIs><LinearRing><coordinates>";
    for (const GeoPosition& p : ring) {
        std::array<char, 64> pair;
        std::snprintf(pair.data(), pair.size(), "%.7f,%.7f ", p.longitude, p.latitude);
        text += pair.data();
    }
    text.pop_back();
    return text + "</coordinates></LinearRing></outerBoundaryIs></Polygon>";
}

std::string kmlPlacemark(const ordered_json& properties, const GeoArea& area, std::string_view kind,
                         const std::string& description) {
    std::string text = "<Placemark><name>" +
                       xmlEscaped(properties["name"].get<std::string>() + ": " + std::string(kind)) +
                       "</name><description>" + xmlEscaped(description) + "</description><styleUrl>#" +
                       std::string(kind) + "</styleUrl><ExtendedData>";
    for (const auto& [name, value] : properties.items()) {
        text += "<Data name=\"" + name + "\"><value>" +
                xmlEscaped(value.is_string() ? value.get<std::string>() : value.dump()) + "</value></Data>";
    }
    text += "</ExtendedData>";
    if (area.size() > 1) {
        text += "<MultiGeometry>";
    }
    for (const GeoRing& ring : area) {
        text += kmlPolygon(ring);
    }
    return text + (area.size() > 1 ? "</MultiGeometry>" : "") + "</Placemark>\n";
}

constexpr std::string_view kGeojsonHead = "{\"type\": \"FeatureCollection\", \"features\": [\n";
constexpr std::string_view kGeojsonEnd = "\n]}\n";
// Colours are alpha, blue, green, red.
constexpr std::string_view kKmlHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<kml xmlns=\"http://www.opengis.net/kml/2.2\"><Document>\n"
    "<name>Threat zones</name>\n"
    "<Style id=\"footprint\"><LineStyle><color>ff163bb9</color><width>2</width></LineStyle>"
    "<PolyStyle><color>602e57e4</color></PolyStyle></Style>\n"
    "<Style id=\"circle\"><LineStyle><color>ff8c5014</color><width>2</width></LineStyle>"
    "<PolyStyle><fill>0</fill></PolyStyle></Style>\n";
constexpr std::string_view kKmlEnd = "</Document></kml>\n";

}  // namespace

GeoArea footprintOnGlobe(const Footprint& footprint, const GeoPosition& at, double windFrom) {
    if (footprint.distance > kLongestOnMap || footprint.widest().halfWidth > kLongestOnMap) {
        return {};
    }
    const GeographicLib::GeodesicLine axis = Geodesic::WGS84().Line(at.latitude, at.longitude, windFrom + 180);
    GeoRing right{at};
    GeoRing left;
    for (const FootprintPoint& point : footprint.points) {
        GeoPosition middle;
        double heading = 0;
        axis.Position(point.downwind, middle.latitude, middle.longitude, heading);
        if (point.halfWidth <= 0) {
            right.push_back(middle);
        } else {
            right.push_back(away(middle, heading + 90, point.halfWidth));
            left.push_back(away(middle, heading - 90, point.halfWidth));
        }
    }
    right.insert(right.end(), left.rbegin(), left.rend());
    return onMap(right);
}

GeoArea circleOnGlobe(double radius, const GeoPosition& at) {
    if (radius > kLongestOnMap) {
        return {};
    }
    GeoRing corners;
    for (int i = 0; i < kCircleCorners; ++i) {
        corners.push_back(away(at, -360.0 * i / kCircleCorners, radius));
    }
    return onMap(corners);
}

MapFile::MapFile(Kind kind, std::string path) : kind_(kind), file_(std::move(path)) {
    file_.append(kind_ == Kind::geojson ? kGeojsonHead : kKmlHead);
}

void MapFile::add(const Scenario& scenario, const ScreeningResult& result, const GeoPosition& at) {
    if (!result.footprint) {
        return;
    }
    const auto feature = [&](std::string_view kind, const GeoArea& zone) {
        const ordered_json list = properties(scenario, result, at, kind);
        if (kind_ == Kind::geojson) {
            file_.append((any_ ? ",\n" : "") + geojsonFeature(list, zone));
        } else if (!zone.empty()) {
            file_.append(kmlPlacemark(list, zone, kind,
                                      releaseText(scenario) + ": " + distanceText(scenario, result) + " (" +
                                          metersText(result.footprint->distance) + ")"));
        }
        any_ = true;
    };
    if (scenario.windFrom) {
        feature("footprint", footprintOnGlobe(*result.footprint, at, scenario.windFrom->value));
    }
    feature("circle", circleOnGlobe(result.footprint->distance, at));
}

void MapFile::finish() {
    file_.append(kind_ == Kind::geojson ? kGeojsonEnd : kKmlEnd);
    file_.finish();
}

}  // namespace host
