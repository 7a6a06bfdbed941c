// The dispersion model against a solver of its own, and the two script functions.

#include "screening/plume.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "screening/checks.h"
#include "screening/model.h"
#include "support/failing_allocator.h"
#include "support/machine_fixture.h"
#include "util/fhandle.h"

namespace quil {
namespace {

using namespace std::string_literals;

// The plume equation told once more, in a form of its own: spreads are a * x * (1 + b * x)^e.
struct Plume {
    double sy, syb, sz, szb, sze;
    double strength;  // release rate over pi, wind and level of concern

    double lateral(double x) const { return sy * x * std::pow(1 + syb * x, -0.5); }
    double vertical(double x) const { return sz * x * std::pow(1 + szb * x, sze); }
    // Concentration over level of concern; falls with x.
    double relative(double x) const { return strength / (lateral(x) * vertical(x)); }

    double reach() const {
        double low = 1e-12;
        double high = 1e18;
        for (int i = 0; i < 400; ++i) {
            const double middle = std::sqrt(low) * std::sqrt(high);
            (relative(middle) > 1 ? low : high) = middle;
        }
        return low;
    }

    // Where at most 19 rounds of Newton's method stand, with the slope that the model deliberately uses.
    double newton() const {
        double x = std::sqrt(strength / (sy * sz));
        for (double step = 1, round = 1; round <= 19 && std::fabs(step) >= 0.01; ++round) {
            const double slope = (1 - 0.05 * syb * x / (1 + syb * x) + 1 + sze * szb * x / (1 + szb * x)) / x;
            step = (1 / relative(x) - 1) / slope;
            x -= step;
        }
        return x;
    }
};

// Open country, then towns; classes A to F: lateral, vertical, its bend and exponent.
constexpr double kCurves[] = {0.22, 0.20, 0,      1,    0.16, 0.12, 0,      1,    0.11, 0.08,  0.0002, -0.5,
                              0.08, 0.06, 0.0015, -0.5, 0.06, 0.03, 0.0003, -1,   0.04, 0.016, 0.0003, -1,
                              0.32, 0.24, 0.001,  0.5,  0.32, 0.24, 0.001,  0.5,  0.22, 0.20,  0,      1,
                              0.16, 0.14, 0.0003, -0.5, 0.11, 0.08, 0.0015, -0.5, 0.11, 0.08,  0.0015, -0.5};

// `rate` in grams per second, wind in metres per second.
Plume plume(char terrain, char stability, double rate, double wind, double loc) {
    const double* curve = kCurves + (terrain == 'U' ? 24 : 0) + (stability - 'A') * 4;
    return {curve[0], terrain == 'U' ? 0.0004 : 0.0001, curve[1], curve[2], curve[3], rate / (3.14159265 * wind * loc)};
}

std::string number(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.24f", value);
    return text;
}

// The parameter of a gas released over ten minutes.
std::string parameter(char terrain, char stability, double pounds, double wind, double loc, const char* distanceUnit) {
    return "|" + number(loc) + "|G|" + (terrain == 'O' ? "OPEN" : "URBAN") + "|" + number(wind) + "|MPS|" +
           number(pounds) + "|LBS|100|" + stability + "||||||10|MINUTES|||" + distanceUnit;
}

double metersOf(char terrain, char stability, double pounds, double wind, double loc) {
    return calculate(ParseScreeningInputs(parameter(terrain, stability, pounds, wind, loc, "").c_str()));
}

// The smallest amount of a gas that reaches farther than so many metres.
double poundsBeyond(double meters) {
    double low = 0;
    double high = 1e7;
    for (int i = 0; i < 200; ++i) {
        const double middle = (low + high) / 2;
        (metersOf('O', 'D', middle, 4, 0.01) > meters ? high : low) = middle;
    }
    return high;
}

// The answer, then "; " and the message where there is one.
std::string distanceText(const std::string& text) {
    char result[kDistanceResultSize] = "unset";
    MessageBuffer message = "unset";
    GetPlumeDistanceStrOrErrorStr(text.c_str(), result, message);
    return message[0] == 0 ? result : std::string(result) + "; " + message;
}

std::string pointsText(const std::string& text) {
    std::string result = "unset";
    MessageBuffer message = "unset";
    GetPlumePoints(text.c_str(), result, message);
    return result;
}

struct Footprint {
    std::string distance;
    std::vector<double> x, y;
    double widest = 0;
};
Footprint footprint(const std::string& text) {
    Footprint result;
    const std::string points = pointsText(text);
    EXPECT_EQ(points.back(), '\r');
    std::istringstream stream(points);
    std::getline(stream, result.distance, '\r');
    for (std::string line; std::getline(stream, line, '\r');) {
        result.x.push_back(std::strtod(line.c_str(), nullptr));
        result.y.push_back(std::strtod(line.c_str() + line.find(',') + 1, nullptr));
        result.widest = std::max(result.widest, result.y.back());
    }
    return result;
}

TEST(Model, AgreesWithBisectionUpToItsCapsAndWithNewtonsMethodBeyond) {
    std::mt19937 random(1609);
    const auto between = [&random](double low, double high) {
        return std::exp(std::uniform_real_distribution<>(std::log(low), std::log(high))(random));
    };
    int near = 0;
    for (int i = 0; i < 6000; ++i) {
        const char terrain = "OU"[i % 2];
        const char stability = static_cast<char>('A' + i / 2 % 6);
        const double pounds = between(0.1, 1e6);
        const double wind = between(1, 20);
        const double loc = between(1e-5, 10);
        SCOPED_TRACE(parameter(terrain, stability, pounds, wind, loc, ""));
        const double meters = metersOf(terrain, stability, pounds, wind, loc);
        const Plume oracle = plume(terrain, stability, pounds / 10 / 0.132, wind, loc);
        EXPECT_NEAR(meters, oracle.newton(), 1e-6 * meters);
        if (meters < 40000) {
            ++near;
            EXPECT_NEAR(meters, oracle.reach(), 0.011);
        }
    }
    EXPECT_GT(near, 3000);
}

// Distances, widest half-widths: worked out apart from this program, from the formulas.
TEST(Model, GivesKnownDistancesOverAllStates) {
    const struct {
        const char *parameter, *distance, *meters, *widest;
    } known[] = {
        {"SCREEN|0.0087|G|OPEN|3.35|MPH|150|LBS|100|F||||||10|MINUTES|||MI", "1.9", "3093.8", "84.2"},
        {"|0.0087|G|URBAN|4|MPS|500|KGS|50|D||||||2|HOURS|||KM", "0.1", "121.7", "16.3"},
        {"|0.05|L|OPEN|2.5|MPS|2000|LBS|100|B||AMBIENT|0.02|0.1||||400|SQFT|KM", "0.2", "183.9", "25.1"},
        {"|0.05|L|OPEN|2.5|MPS|2000|LBS|100|A||BOILING|0.02|0.1|||||SQFT|KM", "0.4", "427.8", "79.4"},
        {"|0.001|S|URBAN|6|MPH|40|KGS|80|E|POWDER|||||30|MINUTES|||MI", "0.4", "608.8", "49.7"},
        {"|0.01|S|OPEN|5|MPS|1000|LBS|100|C|MOLTEN||||0.003|||20|SQM|KM", "0.2", "161.1", "15.1"},
        {"|0.2|S|URBAN|1.5|MPS|300|LBS|25|B|SOLUTION|||||1|HOURS|||KM", "< .1", "11.4", "3.1"},
        {"|0.002|G|OPEN|8|MPS|100|KGS|100|D||||||15|MINUTES|||MI", "0.5", "851.8", "52.9"},
        {"|0.5|G|OPEN|4.5|MPH|100|LBS|100|E||||||60|MINUTES|||KM", "< .1", "47.5", "2.4"},
        {"|0.03|L|URBAN|3|MPS|5000|KGS|90|F||BOILING|0.02|0.08||||60|SQM|KM", "1.3", "1254.3", "92.1"},
    };
    for (const auto& row : known) {
        SCOPED_TRACE(row.parameter);
        EXPECT_EQ(distanceText(row.parameter), row.distance);
        const Footprint points = footprint(row.parameter);
        EXPECT_EQ(points.distance, row.meters);
        EXPECT_DOUBLE_EQ(points.widest, std::strtod(row.widest, nullptr));
    }
}

// Worked out by hand: 1000 pounds at 50 percent are a mass of 500, so a pool spreads to 245 square feet.
TEST(Model, EstimatesTheReleaseRateByStateAndStorage) {
    ResetScreening();
    WIND = 1.0;
    REL_QUANT_CONCENTRATION = 50.0;
    LFA = 0.01;
    LFB = 0.02;
    LFM = 0.04;
    REL_DURATN = 10.0;
    REL_DURATN_UNITS = kMinutes;
    const auto rate = [](char state, char storage, double area = kMissingNumber, std::int16_t areaUnit = kSquareFeet) {
        PHY_STATE = state;
        LIQ_STORAGE = SOL_STORAGE = storage;
        DIKE_AREA = area;
        DIKE_AREA_UNIT = areaUnit;
        const double result = QR_Function(1000.0);
        EXPECT_EQ(result, QR);
        return result;
    };
    const struct {
        char state, storage;
        double rate;
    } rates[] = {{'G', 0, 50},    {'S', 'P', 50}, {'S', 'S', 50}, {'S', 'O', 0},  {'S', 'M', 20},
                 {'S', 'X', 500}, {'X', 0, 500},  {'L', 'A', 5},  {'L', 'B', 10}, {'L', 'X', 500}};
    for (const auto& row : rates) {
        EXPECT_DOUBLE_EQ(rate(row.state, row.storage), row.rate) << row.state << row.storage;
    }
    // Every unit but square feet counts as square metres; a dike larger than the pool does not bound it.
    const struct {
        double area;
        std::int16_t unit;
        double rate;
    } dikes[] = {{0, kSquareFeet, 5},       {49, kSquareFeet, 1},           {245.1, kSquareFeet, 5},
                 {245.1, kSquareMeters, 5}, {4.9, kSquareMeters, 1.076391}, {4.9, kNoUnit, 1.076391}};
    for (const auto& row : dikes) {
        EXPECT_DOUBLE_EQ(rate('L', 'A', row.area, row.unit), row.rate) << row.area << ' ' << row.unit;
    }
    WIND = 16.0;
    EXPECT_DOUBLE_EQ(rate('S', 'M'), 20.0 * std::pow(16.0, 0.78));
    REL_DURATN_UNITS = kNoUnit;  // every unit but minutes counts as hours
    EXPECT_DOUBLE_EQ(rate('G', 0), 500.0 / 600.0);
    REL_DURATN = kMissingNumber;
    EXPECT_DOUBLE_EQ(rate('G', 0), -500.0);
}

TEST(Model, TakesUnknownUnitsAsKilogramsAndMetersPerSecond) {
    const auto meters = [](const char* wind, const char* amount) {
        return calculate(
            ParseScreeningInputs(("|0.01|G|OPEN|"s + wind + "|" + amount + "|100|D||||||10|MINUTES").c_str()));
    };
    const double expected = meters("2.5|MPS", "220.4623|LBS");
    for (const char* amount : {"100|KGS", "100|MI"}) {
        EXPECT_DOUBLE_EQ(meters("2.5|", amount), expected);
    }
    EXPECT_DOUBLE_EQ(meters("2.5|MPH", "100|KGS"), meters("1.1175|MPS", "100|KGS"));
}

TEST(Model, KeepsItsCoefficientsForAnUnknownClassOrTerrain) {
    ResetScreening();
    OPEN_URBAN = 'U';
    STAB_CLASS = 'E';
    SetDispersionGlobals();
    STAB_CLASS = 'G';
    OPEN_URBAN = 'O';
    SetDispersionGlobals();
    EXPECT_EQ(SY2, 0.0001);
    EXPECT_EQ(SY1, 0.11);
    STAB_CLASS = 'A';
    OPEN_URBAN = 'X';
    SetDispersionGlobals();
    EXPECT_EQ(SY1, 0.11);
    SZ3 = 0.25;  // no known form of the vertical curve
    EXPECT_EQ(SIGMAz(100.0), 0.0);
    EXPECT_EQ(dSIGMAz(100.0), 0.0);
}

TEST(Model, LeavesValuesThatAreNotFiniteAsTheyCome) {
    // A concentration of nothing; the diked area of a molten solid, which is not checked.
    for (const char* text : {"SCREEN|0.0087|G|OPEN|3.35|MPH|150|LBS|0|F||||||10|MINUTES|||MI",
                             "|0.01|S|OPEN|5|MPS|1000|LBS|100|C|MOLTEN||||0.003|||1.2.3|SQM|KM"}) {
        EXPECT_TRUE(std::isnan(std::strtod(distanceText(text).c_str(), nullptr))) << distanceText(text);
        EXPECT_EQ(footprint(text).x.size(), 25U);
    }
}

TEST(Distance, IsCappedToTheRangeOfTheModel) {
    const struct {
        double meters;
        const char *unit, *upTo, *beyond;
    } caps[] = {{160.9, "MI", "< .1", "0.1"},
                {100.0, "KM", "< .1", "0.1"},
                {16090.0, "MILES", "10.0", "> 10"},
                {16000.0, "KILOMETERS", "16.0", "> 16"}};
    for (const auto& cap : caps) {
        SCOPED_TRACE(testing::Message() << cap.meters << ' ' << cap.unit);
        const double pounds = poundsBeyond(cap.meters);
        EXPECT_EQ(distanceText(parameter('O', 'D', pounds * (1 - 1e-9), 4, 0.01, cap.unit)), cap.upTo);
        EXPECT_EQ(distanceText(parameter('O', 'D', pounds * (1 + 1e-9), 4, 0.01, cap.unit)), cap.beyond);
    }
}

TEST(Distance, NeedsMilesOrKilometers) {
    for (const char* unit : {"", "HOURS", "furlongs"}) {
        EXPECT_EQ(distanceText(parameter('O', 'D', 100, 4, 0.01, unit)),
                  "; Programmer error in GetPlumeDistanceStrOrErrorStr");
    }
}

TEST(Distance, OfARejectedInputIsItsCodeAndFlag) {
    EXPECT_EQ(distanceText("|0.1|G|OPEN|3|MPS|1|LBS|100|D||||||||||MI"),
              "ERROR 16 TRUE; Please enter a release duration.");
    EXPECT_EQ(pointsText("SCREEN"), "ERROR 2 FALSE");
}

TEST(Points, StandAtTwentyFiveEqualStepsOfTheDistance) {
    const std::string text = parameter('O', 'D', poundsBeyond(2500.0), 4, 0.01, "");
    EXPECT_TRUE(pointsText(text).starts_with("2500.0\r100.0,"));
    const Footprint points = footprint(text);
    ASSERT_EQ(points.x.size(), 25U);
    for (std::size_t i = 0; i < 25; ++i) {
        EXPECT_EQ(points.x[i], 100.0 * static_cast<double>(i + 1));
    }
    EXPECT_LE(points.y[24], 0.5);
}

TEST(Points, LieWhereTheConcentrationIsTheLevelOfConcern) {
    const Plume oracle = plume('U', 'C', 300 / 10 / 0.132, 4, 0.002);
    const Footprint points = footprint(parameter('U', 'C', 300, 4, 0.002, ""));
    for (std::size_t i = 0; i < 24; ++i) {
        const double across = points.y[i] / oracle.lateral(points.x[i]);
        EXPECT_NEAR(oracle.relative(points.x[i]) * std::exp(-across * across / 2), 1.0, 0.05) << i;
    }
}

TEST(Points, AreWholeForAnyDistance) {
    const std::string points = pointsText(parameter('O', 'D', 1e30, 4, 1e-9, ""));
    EXPECT_GT(points.size(), 500U);
    EXPECT_EQ(std::count(points.begin(), points.end(), '\r'), 26);
    EXPECT_EQ(std::count(points.begin(), points.end(), ','), 25);
}

class Handlers : public support::MachineFixture {
  protected:
    ~Handlers() override {
        DisposeAndClearFHandle(&parameter_);
        DisposeAndClearFHandle(&result_);
    }
    std::string call(std::int32_t (*handler)(long, char**, char**), const std::string& text, std::int32_t code = 0) {
        SetHandleContentsAndIncludeTerminator(parameter_, text.c_str());
        EXPECT_EQ(handler(2, parameter_, result_), code);
        return std::string(FHandleText(result_));
    }
    char** parameter_ = NewFHandle(0);
    char** result_ = NewFHandle(0);
};

TEST_F(Handlers, AnswerAndShowTheMessageForTheDistanceAlone) {
    const std::string good = parameter('O', 'D', 100, 4, 0.01, "KM");
    EXPECT_EQ(call(VSTACalculatePlumeDistance, good), distanceText(good));
    EXPECT_EQ(call(VSTAGetPlumePoints, good), pointsText(good));
    EXPECT_EQ(call(VSTAGetPlumePoints, ""), "ERROR 2 TRUE");
    EXPECT_TRUE(takeMessages().empty());
    EXPECT_EQ(call(VSTACalculatePlumeDistance, ""), "ERROR 2 TRUE");
    const auto shown = takeMessages();
    ASSERT_EQ(shown.size(), 1U);
    EXPECT_NE(shown[0].find("Please enter a level of concern (gm/m3)."), std::string::npos) << shown[0];
}

TEST_F(Handlers, ReadAtMost319Bytes) {
    const std::string text = parameter('O', 'D', 100, 4, 0.01, "");
    const std::string padding(319 - text.size() - 2, ' ');
    EXPECT_EQ(call(VSTACalculatePlumeDistance, padding + text + "MI"), distanceText(text + "MI"));
    EXPECT_EQ(call(VSTACalculatePlumeDistance, padding + " " + text + "MI"), "");  // a unit "M"
    EXPECT_EQ(takeMessages().size(), 1U);
}

TEST_F(Handlers, ReportWantOfMemory) {
    const std::string text = parameter('O', 'D', 100, 4, 0.01, "KM");
    SetHandleContentsAndIncludeTerminator(parameter_, text.c_str());
    support::FailingAllocator memory;
    for (const auto handler : {VSTACalculatePlumeDistance, VSTAGetPlumePoints}) {
        memory.failCall(1);
        EXPECT_EQ(call(handler, text, -108), "");
        EXPECT_EQ(takeMessages(),
                  std::vector<std::string>{"An error occurred in the plug-in function QUIL_External.\r\r"
                                           "Not enough memory to complete this operation.\r\r"});
    }
}

}  // namespace
}  // namespace quil
