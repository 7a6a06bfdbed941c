// Threat zones on the globe, checked by the readers of GDAL and by geodesics of their own.
#include "host/footprint_map.h"

#include <gtest/gtest.h>

#include <GeographicLib/Geodesic.hpp>
#include <cmath>
#include <nlohmann/json.hpp>
#include <string>

#include "support/process.h"

namespace {

using namespace host;
using support::Outcome;
using support::quil;
using support::run;

const std::vector<std::string> kRelease = {"screen",    "--state",    "gas",    "--level-of-concern",
                                           "8.7 mg/m3", "--amount",   "150 lb", "--concentration",
                                           "100",       "--screening"};

Outcome screen(const std::vector<std::string>& more) {
    std::vector<std::string> command = kRelease;
    command.insert(command.end(), more.begin(), more.end());
    return quil(command);
}

double crossArea(const GeoArea& area) {  // of the map, in square degrees
    double sum = 0;
    for (const GeoRing& ring : area) {
        double part = 0;
        for (std::size_t i = 0; i + 1 < ring.size(); ++i) {
            part += ring[i].longitude * ring[i + 1].latitude - ring[i + 1].longitude * ring[i].latitude;
        }
        EXPECT_GT(part, 0) << "clockwise";
        EXPECT_EQ(ring.front().longitude, ring.back().longitude);
        EXPECT_EQ(ring.front().latitude, ring.back().latitude);
        sum += part / 2;
    }
    return sum;
}

TEST(FootprintMap, CutsAtTheAntimeridianAndKeepsTheArea) {
    Footprint footprint{3000, {}};
    for (int i = 1; i <= 25; ++i) {
        footprint.points.push_back({i * 120.0, 40 * std::sin(i * M_PI / 25)});
    }
    footprint.points.back().halfWidth = 0;
    for (const double latitude : {-60.0, 0.0, 75.0}) {
        for (const double from : {0.0, 37.0, 90.0, 200.0, 270.0, 360.0}) {
            const double whole = crossArea(footprintOnGlobe(footprint, {latitude, 20}, from));
            for (const double longitude : {-180.0, -179.999, 179.99, 179.9999, 180.0}) {
                const GeoArea area = footprintOnGlobe(footprint, {latitude, longitude}, from);
                ASSERT_FALSE(area.empty());
                EXPECT_NEAR(crossArea(area), whole, whole * 1e-3) << latitude << " " << longitude << " " << from;
            }
        }
    }
    EXPECT_EQ(circleOnGlobe(3000, {0, 180}).size(), 2U);
    EXPECT_EQ(circleOnGlobe(3000, {0, 0}).size(), 1U);
    EXPECT_TRUE(circleOnGlobe(2e6, {0, 0}).empty());
    for (const double pole : {90.0, -90.0, 89.999, -89.999}) {
        double west = 0;
        double east = 0;
        double toPole = 0;
        for (const GeoRing& ring : circleOnGlobe(3000, {pole, 55})) {
            for (const GeoPosition& p : ring) {
                west = std::min(west, p.longitude);
                east = std::max(east, p.longitude);
                toPole = std::max(toPole, std::fabs(p.latitude));
            }
        }
        EXPECT_EQ(west, -180) << pole;
        EXPECT_EQ(east, 180) << pole;
        EXPECT_EQ(toPole, 90) << pole;
        EXPECT_FALSE(footprintOnGlobe(footprint, {pole, 55}, 20).empty()) << pole;
    }
}

TEST(FootprintMap, WritesWhatIndependentReadersFindValid) {
    const support::TemporaryFolder folder;
    const std::string json = folder.file("zones.geojson");
    const std::string kml = folder.file("zones.kml");
    for (const char* at : {"38.03,-122.13", "-18,180", "52,179.9999", "90,0", "-90,13", "0,0"}) {
        const Outcome outcome = screen({"--at", at, "--wind-from", "280", "--geojson", json, "--kml", kml});
        ASSERT_EQ(outcome.status, 0) << outcome.errors;
        for (const std::string& file : {json, kml}) {
            const Outcome read = run({"ogrinfo", "-ro", "-q", "-al", "-geom=SUMMARY", file});
            EXPECT_EQ(read.status, 0) << read.errors;
            EXPECT_EQ(read.errors.find("ERROR"), std::string::npos) << read.errors;
            EXPECT_NE(read.output.find("POLYGON"), std::string::npos) << file << read.output;
            const bool isJson = file == json;
            const Outcome valid =
                run({"ogrinfo", "-ro", "-q", "-dialect", "SQLite", "-sql",
                     "SELECT count(*) AS n, min(ST_IsValid(geometry)) AS valid, max(ST_MaxX(geometry)) "
                     "<= 180 AS inside FROM \"" +
                         std::string(isJson ? "zones" : "Threat zones") + "\"",
                     file});
            EXPECT_NE(valid.output.find("n (Integer) = 2\n  valid (Integer) = 1\n  inside (Integer) = 1"),
                      std::string::npos)
                << at << valid.output << valid.errors;
        }
    }
    // The footprint's tip lies the threat distance downwind, the circle everywhere at that distance.
    ASSERT_EQ(screen({"--at", "38,-122", "--wind-from", "270", "--geojson", json}).status, 0);
    const auto document = nlohmann::json::parse(support::readFile(json));
    const double meters = document["features"][0]["properties"]["threat-meters"];
    const auto far = [&](const nlohmann::json& ring, bool nearest) {
        double found = nearest ? 1e9 : 0;
        for (const auto& p : ring) {
            double distance = 0;
            GeographicLib::Geodesic::WGS84().Inverse(38, -122, p[1], p[0], distance);
            found = nearest ? std::min(found, distance) : std::max(found, distance);
        }
        return found;
    };
    EXPECT_NEAR(far(document["features"][0]["geometry"]["coordinates"][0], false), meters, 0.5);
    EXPECT_NEAR(far(document["features"][1]["geometry"]["coordinates"][0], true), meters, 0.05);
    EXPECT_EQ(document["features"][0]["properties"]["wind-from"], "270 degrees");
    EXPECT_EQ(document["features"][1]["properties"]["zone"], "circle");

    for (const char* at : {"91,0", "0,181", "north,0", "1", "0,-180.001", ""}) {
        EXPECT_EQ(screen({"--at", at, "--geojson", json}).status, 2) << at;
    }
    EXPECT_EQ(screen({"--at", "1,2", "--geojson", "/no/such/folder/x"}).status, 1);
}

TEST(FootprintMap, CollectsTheRowsThatHaveAPosition) {
    const support::TemporaryFolder folder;
    const std::string json = folder.file("all.geojson");
    const std::string rows =
        "name,state,level-of-concern,amount,concentration,screening,lat,lon,wind-from\n"
        "a,gas,8.7 mg/m3,150 lb,100,yes,38,-122,270\nb,gas,8.7 mg/m3,150 lb,100,yes,38,-122,\n"
        "c,gas,8.7 mg/m3,150 lb,100,yes,,,\nd,gas,8.7 mg/m3,150 lb,100,yes,95,0,\ne,gas,,150 lb,100,yes,1,1,\n";
    const Outcome outcome = quil({"screen", "--batch", "--geojson", json}, {rows});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_NE(outcome.output.find("d,gas,8.7 mg/m3,150 lb,100,yes,95,0,,1.9,miles,0,not on the map: latitude: 95"),
              std::string::npos)
        << outcome.output;
    EXPECT_NE(outcome.errors.find("2 rows with a distance are not on the map"), std::string::npos) << outcome.errors;
    const auto document = nlohmann::json::parse(support::readFile(json));
    EXPECT_EQ(document["features"].size(), 3U);
    EXPECT_EQ(quil({"screen", "--batch", "--geojson", json}, {kRelease.empty() ? "" : "state\ngas\n"}).status, 1);
}

}  // namespace
