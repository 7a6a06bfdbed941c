// The screening calculator's inputs and checks: fields, numbers, units, the seventeen checks and their order.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "screening/checks.h"
#include "screening/inputs.h"
#include "screening/model.h"

namespace quil {
namespace {

using Change = std::function<void(ScreeningInputs&)>;

// Scenarios that pass every check.
ScreeningInputs gas() {
    return {.levelOfConcern = 0.0087,
            .physicalState = 'G',
            .terrain = 'O',
            .windSpeed = 2.5,
            .windUnit = kMetersPerSecond,
            .amount = 150.0,
            .amountUnit = kPounds,
            .concentration = 100.0,
            .stabilityClass = 'D',
            .duration = 10.0,
            .durationUnit = kMinutes,
            .distanceUnit = kMiles};
}
ScreeningInputs liquid() {
    ScreeningInputs inputs = gas();
    inputs.physicalState = 'L';
    inputs.liquidTemperature = 'A';
    inputs.liquidFactorAmbient = 0.02;
    inputs.liquidFactorBoiling = 0.1;
    inputs.duration = kMissingNumber;
    return inputs;
}
ScreeningInputs molten() {
    ScreeningInputs inputs = gas();
    inputs.physicalState = 'S';
    inputs.solidForm = 'M';
    inputs.liquidFactorMolten = 0.01;
    inputs.duration = kMissingNumber;
    return inputs;
}
ScreeningInputs worstCase() {
    ScreeningInputs inputs = gas();
    inputs.screening = 1;
    inputs.windSpeed = 3.35;
    inputs.windUnit = kMilesPerHour;
    inputs.stabilityClass = 'F';
    return inputs;
}

ScreeningInputs with(ScreeningInputs inputs, const Change& change) {
    change(inputs);
    return inputs;
}
Change number(double ScreeningInputs::*field, double value) {
    return [=](ScreeningInputs& inputs) { inputs.*field = value; };
}
Change letter(char ScreeningInputs::*field, char value) {
    return [=](ScreeningInputs& inputs) { inputs.*field = value; };
}
Change unit(std::int16_t ScreeningInputs::*field, std::int16_t value) {
    return [=](ScreeningInputs& inputs) { inputs.*field = value; };
}
Change windAndClass(double speed, std::int16_t code, char stability) {
    return [=](ScreeningInputs& inputs) {
        inputs.windSpeed = speed;
        inputs.windUnit = code;
        inputs.stabilityClass = stability;
    };
}

struct Verdict {
    double meters;
    std::int16_t code = 77;
    std::uint8_t flag = 77;
    std::string message;
};
Verdict judge(const ScreeningInputs& inputs) {
    Verdict verdict{};
    MessageBuffer message;
    std::memset(message, 'x', sizeof message);
    verdict.meters = CalculatePlumeDistance(inputs, message, &verdict.code, &verdict.flag);
    verdict.message = message;
    return verdict;
}

using SI = ScreeningInputs;
constexpr double kMissing = kMissingNumber;
constexpr double kInvalid = kInvalidNumber;

struct Rejection {
    ScreeningInputs inputs;
    int code;
    int flag;
    const char* message;
};

std::vector<Rejection> rejections() {
    const char* const badLoc =
        "This is not a valid level of concern; please enter a new number (must be greater than zero).";
    const char* const badRecordLoc =
        "Invalid level of concern in this substance's chemical record. Unable to calculate radius.";
    const char* const badDuration = "Release duration invalid; please enter a new number (must be greater than zero).";
    const char* const tenMinutes = "Programmer Error: Duration must be 10 minutes for screenings.";
    const char* const badAmount = "Amount released invalid; please enter a new number (must be greater than zero).";
    const char* const percentRange = "Please enter a concentration (weight percent) value between 0 and 100.";
    const char* const mphRange = "Speed must be between 2.3 and 134 miles per hour. Please modify your value.";
    const char* const mpsRange = "Speed must be between 1 and 60 meters per second. Please modify your value.";
    const char* const notC =
        "Stability class must be A, B, D, E, or F for this wind speed. Please choose one of these five classes.";
    const char* const bToE =
        "Stability class must be B, C, D, or E for this wind speed. Please choose one of these four classes.";
    const char* const cOrD =
        "Stability class must be  C or D for this wind speed. Please choose either of these classes.";
    const char* const badClass = "Programmer Error: invalid stability class.";
    const char* const badSolid = "Programmer Error: invalid solid form.";
    const char* const badDike = "Invalid diked area value. Please enter a new number.";
    const char* const badDikeUnit = "Programmer Error: Invalid units for diked area.";
    const char* const missingLfm =
        "Missing liquid factor molten in this substance's chemical record. Unable to calculate radius.";
    const char* const invalidLfm =
        "Invalid liquid factor molten in this substance's chemical record. Unable to calculate radius.";
    const char* const invalidLfa =
        "Invalid liquid factor ambient in this substance's chemical record. Unable to calculate radius.";
    const char* const invalidLfb =
        "Invalid liquid factor boiling in this substance's chemical record. Unable to calculate radius.";
    const auto boiling = [](const Change& change) {
        return with(with(liquid(), letter(&SI::liquidTemperature, 'B')), change);
    };
    const auto powder = [](const Change& change) { return with(with(molten(), letter(&SI::solidForm, 'P')), change); };
    return {
        {with(worstCase(), number(&SI::levelOfConcern, kMissing)), 2, 0,
         "Missing level of concern in this substance's chemical record. Unable to calculate radius."},
        {with(worstCase(), number(&SI::levelOfConcern, kInvalid)), 2, 0, badRecordLoc},
        {with(worstCase(), number(&SI::levelOfConcern, 0.0)), 2, 0, badRecordLoc},
        {with(gas(), number(&SI::levelOfConcern, kMissing)), 2, 1, "Please enter a level of concern (gm/m3)."},
        {with(gas(), number(&SI::levelOfConcern, kInvalid)), 2, 1, badLoc},
        {with(gas(), number(&SI::levelOfConcern, -0.0)), 2, 1, badLoc},
        {with(gas(), number(&SI::levelOfConcern, -1.0)), 2, 1, badLoc},

        {with(worstCase(), letter(&SI::physicalState, 0)), 3, 0,
         "Missing physical state in this substance's chemical record. Unable to calculate radius."},
        {with(worstCase(), letter(&SI::physicalState, 'X')), 3, 0,
         "Invalid physical state in this substance's chemical record. Unable to calculate radius."},
        {with(gas(), letter(&SI::physicalState, 0)), 3, 0, "Please specify physical state."},
        {with(gas(), letter(&SI::physicalState, 'P')), 3, 0, "Programmer Error: invalid physical state."},

        {with(worstCase(), letter(&SI::terrain, 'U')), 4, 0,
         "Programmer Error: Open topography is required under Screenings."},
        {with(worstCase(), letter(&SI::terrain, 0)), 4, 0,
         "Programmer Error: Open topography is required under Screenings."},
        {with(gas(), letter(&SI::terrain, 0)), 4, 1, "Please specify terrain (open or urban)."},
        {with(gas(), letter(&SI::terrain, 'X')), 4, 1, "Programmer Error: invalid terrain."},

        {with(gas(), unit(&SI::windUnit, kUnknownUnit)), 6, 0, "Programmer Error: invalid wind speed units."},
        {with(worstCase(), unit(&SI::windUnit, kUnknownUnit)), 6, 0, "Programmer Error: invalid wind speed units."},

        {with(worstCase(), number(&SI::windSpeed, 3.36)), 5, 0,
         "Programmer Error: Wind speed must be 3.35 mph for screenings."},
        {with(worstCase(), unit(&SI::windUnit, kMetersPerSecond)), 5, 0,
         "Programmer Error: Wind speed must be 1.5 mps for screenings."},
        {with(gas(), number(&SI::windSpeed, kMissing)), 5, 1, "Please enter a wind speed."},
        {with(gas(), number(&SI::windSpeed, kInvalid)), 5, 1, "Wind speed invalid; please enter a new number."},
        {with(gas(), windAndClass(2.29, kMilesPerHour, 'D')), 5, 1, mphRange},
        {with(gas(), windAndClass(134.01, kMilesPerHour, 'D')), 5, 1, mphRange},
        {with(gas(), windAndClass(0.99, kMetersPerSecond, 'D')), 5, 1, mpsRange},
        {with(gas(), windAndClass(60.01, kMetersPerSecond, 'D')), 5, 1, mpsRange},

        {with(worstCase(), letter(&SI::stabilityClass, 'E')), 10, 0,
         "Programmer Error: Stability class must be F for screenings."},
        {with(gas(), letter(&SI::stabilityClass, 0)), 10, 1, badClass},
        {with(gas(), letter(&SI::stabilityClass, '@')), 10, 1, badClass},
        {with(gas(), letter(&SI::stabilityClass, 'G')), 10, 1, badClass},
        {with(gas(), windAndClass(1.99, kMetersPerSecond, 'C')), 10, 1, notC},
        {with(gas(), windAndClass(4.47, kMilesPerHour, 'C')), 10, 1, notC},
        {with(gas(), windAndClass(4.47, kNoUnit, 'C')), 10, 1, notC},  // no unit is miles per hour here
        {with(gas(), windAndClass(3.01, kMetersPerSecond, 'A')), 10, 1, bToE},
        {with(gas(), windAndClass(5.0, kMetersPerSecond, 'F')), 10, 1, bToE},
        {with(gas(), windAndClass(5.01, kMetersPerSecond, 'A')), 10, 1, cOrD},
        {with(gas(), windAndClass(5.5, kMetersPerSecond, 'B')), 10, 1, cOrD},
        {with(gas(), windAndClass(12.0, kMilesPerHour, 'E')), 10, 1, cOrD},

        {with(worstCase(), number(&SI::duration, 11.0)), 16, 0, tenMinutes},
        {with(worstCase(), number(&SI::duration, kMissing)), 16, 0, tenMinutes},
        {with(gas(), number(&SI::duration, kMissing)), 16, 1, "Please enter a release duration."},
        {with(gas(), number(&SI::duration, kInvalid)), 16, 1, badDuration},
        {with(gas(), number(&SI::duration, 0.0)), 16, 1, badDuration},
        {with(gas(), number(&SI::duration, 1.5)), 16, 1, "Programmer Error: release duration must be integer."},
        {with(gas(), number(&SI::duration, 2147483648.0)), 16, 1,
         "Programmer Error: release duration must be integer."},
        {powder(number(&SI::duration, kMissing)), 16, 1, "Please enter a release duration."},

        {with(gas(), unit(&SI::amountUnit, kUnknownUnit)), 8, 0, "Programmer Error: Invalid units for max quantity."},

        {with(gas(), number(&SI::amount, kMissing)), 7, 1, "Please enter the amount released."},
        {with(gas(), number(&SI::amount, kInvalid)), 7, 1, badAmount},
        {with(worstCase(), number(&SI::amount, 0.0)), 7, 1, badAmount},

        {with(gas(), number(&SI::concentration, kMissing)), 9, 1, "Please enter a concentration (in weight percent)."},
        {with(gas(), number(&SI::concentration, kInvalid)), 9, 1,
         "Concentration invalid; please enter a new number (in weight percent)."},
        {with(gas(), number(&SI::concentration, -0.01)), 9, 1, percentRange},
        {with(gas(), number(&SI::concentration, 100.01)), 9, 1, percentRange},

        {with(molten(),
              [](SI& in) {
                  in.solidForm = 0;
                  in.duration = 10;
              }),
         11, 1, "Please specify the form of this solid."},
        {with(molten(),
              [](SI& in) {
                  in.solidForm = 'O';
                  in.duration = 10;
              }),
         11, 1, badSolid},
        {with(molten(),
              [](SI& in) {
                  in.solidForm = 'X';
                  in.duration = 10;
              }),
         11, 1, badSolid},

        {with(molten(), number(&SI::liquidFactorMolten, kMissing)), 15, 0, missingLfm},
        {with(molten(), number(&SI::liquidFactorMolten, kInvalid)), 15, 0, invalidLfm},
        {with(molten(), number(&SI::liquidFactorMolten, 0.0)), 15, 0, invalidLfm},

        {with(liquid(), letter(&SI::liquidTemperature, 0)), 12, 1,
         "Please indicate whether this liquid is at ambient or near boiling temperature."},
        {with(liquid(), letter(&SI::liquidTemperature, 'X')), 12, 1, "Programmer Error: invalid liquid form."},

        {with(liquid(), number(&SI::liquidFactorAmbient, kMissing)), 13, 0,
         "Missing liquid factor ambient in this substance's chemical record. Unable to calculate radius."},
        {with(liquid(), number(&SI::liquidFactorAmbient, kInvalid)), 13, 0, invalidLfa},
        {with(liquid(), number(&SI::liquidFactorAmbient, 0.0)), 13, 0, invalidLfa},
        {boiling(number(&SI::liquidFactorBoiling, kMissing)), 14, 0,
         "Missing liquid factor boiling in this substance's chemical record. Unable to calculate radius."},
        {boiling(number(&SI::liquidFactorBoiling, kInvalid)), 14, 0, invalidLfb},
        {boiling(number(&SI::liquidFactorBoiling, -2.0)), 14, 0, invalidLfb},

        {with(liquid(), unit(&SI::dikeAreaUnit, kUnknownUnit)), 19, 0, badDikeUnit},
        {with(molten(), unit(&SI::dikeAreaUnit, kUnknownUnit)), 19, 0, badDikeUnit},
        {with(gas(),
              [](SI& in) {
                  in.solidForm = 'M';
                  in.dikeAreaUnit = kUnknownUnit;
              }),
         19, 0, badDikeUnit},

        {with(liquid(), number(&SI::dikeArea, kInvalid)), 18, 0, badDike},
        {with(liquid(), number(&SI::dikeArea, -0.01)), 18, 0, badDike},
        {with(gas(),
              [](SI& in) {
                  in.liquidTemperature = 'M';
                  in.dikeArea = -1;
              }),
         18, 0, badDike},
    };
}

TEST(Checks, RejectWithTheirMessageCodeAndFlag) {
    std::set<std::string> messages;
    int row = 0;
    for (const Rejection& rejection : rejections()) {
        SCOPED_TRACE("row " + std::to_string(row++) + ": " + rejection.message);
        const Verdict verdict = judge(rejection.inputs);
        EXPECT_EQ(verdict.meters, -1.0);
        EXPECT_EQ(verdict.code, rejection.code);
        EXPECT_EQ(verdict.flag, rejection.flag);
        EXPECT_EQ(verdict.message, rejection.message);
        messages.insert(rejection.message);
    }
    EXPECT_EQ(messages.size(), 45U) << "every message of the seventeen checks";
}

TEST(Checks, AcceptTheirLimitsAndWhatDoesNotApply) {
    const ScreeningInputs accepted[] = {
        gas(),
        liquid(),
        molten(),
        worstCase(),
        with(gas(), windAndClass(2.3, kMilesPerHour, 'A')),
        with(gas(), windAndClass(134.0, kMilesPerHour, 'C')),
        with(gas(), windAndClass(1.0, kMetersPerSecond, 'F')),
        with(gas(), windAndClass(60.0, kMetersPerSecond, 'D')),
        with(gas(), windAndClass(500.0, kKilometers, 'D')),  // a speed in another unit has no limits
        with(gas(), windAndClass(-4.0, kNoUnit, 'A')),
        with(gas(), windAndClass(2.0, kMetersPerSecond, 'C')),
        with(gas(), windAndClass(3.0, kMetersPerSecond, 'A')),
        with(gas(), windAndClass(3.01, kMetersPerSecond, 'B')),
        with(gas(), windAndClass(5.0, kMetersPerSecond, 'E')),
        with(gas(), windAndClass(5.01, kMetersPerSecond, 'C')),
        with(worstCase(), windAndClass(1.5, kMetersPerSecond, 'F')),
        with(worstCase(), windAndClass(kMissing, kNoUnit, 'F')),  // a worst case checks two units alone
        with(worstCase(), unit(&SI::durationUnit, kHours)),
        with(gas(), unit(&SI::durationUnit, kUnknownUnit)),
        with(gas(), number(&SI::duration, 2147483647.0)),
        with(gas(), unit(&SI::amountUnit, kMiles)),
        with(gas(), number(&SI::concentration, 0.0)),
        with(liquid(), number(&SI::dikeArea, 0.0)),
        with(molten(), number(&SI::dikeArea, kInvalid)),
        with(gas(), number(&SI::dikeArea, kInvalid)),
        with(gas(), unit(&SI::dikeAreaUnit, kUnknownUnit)),
    };
    int row = 0;
    for (const ScreeningInputs& inputs : accepted) {
        SCOPED_TRACE("row " + std::to_string(row++));
        const Verdict verdict = judge(inputs);
        EXPECT_EQ(verdict.code, 0);
        EXPECT_EQ(verdict.flag, 0);
        EXPECT_EQ(verdict.message, "");
        EXPECT_NE(verdict.meters, -1.0);
    }
    for (char stability = 'A'; stability <= 'F'; ++stability) {
        EXPECT_EQ(judge(with(gas(), windAndClass(2.5, kMetersPerSecond, stability))).code, 0) << stability;
    }
}

// Everything is wrong; each repair uncovers the check that is next in order.
TEST(Checks, RunInTheirOrder) {
    const auto uncover = [](ScreeningInputs inputs, const std::vector<std::pair<int, Change>>& repairs) {
        for (const auto& [code, repair] : repairs) {
            EXPECT_EQ(judge(inputs).code, code);
            repair(inputs);
        }
        EXPECT_EQ(judge(inputs).code, 0);
    };
    const ScreeningInputs wrong = {
        .windUnit = kUnknownUnit, .amountUnit = kUnknownUnit, .dikeArea = -1.0, .dikeAreaUnit = kUnknownUnit};
    const auto common = [](char state) {
        return std::vector<std::pair<int, Change>>{
            {2, number(&SI::levelOfConcern, 0.1)}, {3, letter(&SI::physicalState, state)},
            {4, letter(&SI::terrain, 'U')},        {6, unit(&SI::windUnit, kMetersPerSecond)},
            {5, number(&SI::windSpeed, 2.5)},      {10, letter(&SI::stabilityClass, 'D')}};
    };
    const std::vector<std::pair<int, Change>> amounts = {
        {8, unit(&SI::amountUnit, kPounds)}, {7, number(&SI::amount, 10.0)}, {9, number(&SI::concentration, 50.0)}};
    auto solid = common('S');
    solid.push_back({16, number(&SI::duration, 10.0)});
    solid.insert(solid.end(), amounts.begin(), amounts.end());
    solid.push_back({11, letter(&SI::solidForm, 'M')});
    solid.push_back({15, number(&SI::liquidFactorMolten, 0.1)});
    solid.push_back({19, unit(&SI::dikeAreaUnit, kNoUnit)});
    uncover(wrong, solid);

    auto wet = common('L');
    wet.insert(wet.end(), amounts.begin(), amounts.end());
    wet.push_back({12, letter(&SI::liquidTemperature, 'A')});
    wet.push_back({13, letter(&SI::liquidTemperature, 'B')});
    wet.push_back({14, number(&SI::liquidFactorBoiling, 0.1)});
    wet.push_back({19, unit(&SI::dikeAreaUnit, kSquareFeet)});
    wet.push_back({18, number(&SI::dikeArea, 1.0)});
    uncover(wrong, wet);
}

TEST(Checks, LeaveTheModelAloneWhenTheyReject) {
    judge(gas());
    ASSERT_EQ(LOC, 0.0087);
    ResetScreening();
    judge(with(gas(), letter(&SI::terrain, 0)));
    EXPECT_EQ(LOC, 0.0);
    EXPECT_EQ(SY1, 0.0);
}

TEST(Fields, AreSplitAtBarsAndCutToTheirBuffer) {
    char field[5];
    const char* next = GetParameter("ab||abcdefg|x", field, sizeof field);
    EXPECT_STREQ(field, "ab");
    next = GetParameter(next, field, sizeof field);
    EXPECT_STREQ(field, "");
    next = GetParameter(next, field, sizeof field);
    EXPECT_STREQ(field, "abcd");
    next = GetParameter(next, field, sizeof field);
    EXPECT_STREQ(field, "x");
    next = GetParameter(next, field, sizeof field);
    EXPECT_STREQ(field, "");
    EXPECT_EQ(*next, '\0');
    char one[2] = {'q', 'q'};
    EXPECT_STREQ(GetParameter("ab|c", one, 1), "c");
    EXPECT_EQ(one[0], '\0');
    EXPECT_EQ(one[1], 'q');
}

TEST(Fields, OfAScenarioGoWhereTheyBelong) {
    const SI inputs = ParseScreeningInputs(
        "Screening|1|gas|an Urban area|2|mph|3|Kilograms|4|f|molten powder|near boiling, not "
        "ambient|5|6|7|8|hours|9|Sq Ft|km|21");
    EXPECT_EQ(inputs.screening, 1);
    EXPECT_EQ(inputs.levelOfConcern, 1.0);
    EXPECT_EQ(inputs.physicalState, 'G');
    EXPECT_EQ(inputs.terrain, 'U');
    EXPECT_EQ(inputs.windSpeed, 2.0);
    EXPECT_EQ(inputs.windUnit, 5);
    EXPECT_EQ(inputs.amount, 3.0);
    EXPECT_EQ(inputs.amountUnit, 4);
    EXPECT_EQ(inputs.concentration, 4.0);
    EXPECT_EQ(inputs.stabilityClass, 'F');
    EXPECT_EQ(inputs.solidForm, 'P');          // tried before molten
    EXPECT_EQ(inputs.liquidTemperature, 'A');  // tried before boiling
    EXPECT_EQ(inputs.liquidFactorAmbient, 5.0);
    EXPECT_EQ(inputs.liquidFactorBoiling, 6.0);
    EXPECT_EQ(inputs.liquidFactorMolten, 7.0);
    EXPECT_EQ(inputs.duration, 8.0);
    EXPECT_EQ(inputs.durationUnit, 11);
    EXPECT_EQ(inputs.dikeArea, 9.0);
    EXPECT_EQ(inputs.dikeAreaUnit, 1);
    EXPECT_EQ(inputs.distanceUnit, 9);
}

TEST(Fields, ThatAreAbsentAreMissing) {
    for (const char* text : {"", "|||||||||||||||||||", "SCR"}) {
        const SI inputs = ParseScreeningInputs(text);
        EXPECT_EQ(inputs.screening, 0);
        EXPECT_EQ(inputs.levelOfConcern, kMissing);
        EXPECT_EQ(inputs.physicalState, 0);
        EXPECT_EQ(inputs.terrain, 0);
        EXPECT_EQ(inputs.solidForm, 0);
        EXPECT_EQ(inputs.liquidTemperature, 0);
        EXPECT_EQ(inputs.dikeArea, kMissing);
        EXPECT_EQ(inputs.distanceUnit, kNoUnit);
    }
}

TEST(Fields, KeepSixtyThreeCharacters) {
    const std::string zeros(61, '0');
    EXPECT_EQ(ParseScreeningInputs(("|" + zeros + "12").c_str()).levelOfConcern, 12.0);
    EXPECT_EQ(ParseScreeningInputs(("|" + zeros + "123|L").c_str()).levelOfConcern, 12.0);
    EXPECT_EQ(ParseScreeningInputs(("|" + zeros + "123|L").c_str()).physicalState, 'L');
    EXPECT_EQ(ParseScreeningInputs((std::string(57, ' ') + "SCREEN").c_str()).screening, 1);
    EXPECT_EQ(ParseScreeningInputs((std::string(58, ' ') + "SCREEN").c_str()).screening, 0);
}

TEST(Numbers, AreReadAsWritten) {
    const std::pair<const char*, double> good[] = {
        {"0", 0.0}, {"3.35", 3.35}, {"-.5", -0.5}, {"-5", -5.0},   {"5.", 5.0},    {".5", 0.5},       {"-", 0.0},
        {".", 0.0}, {"-.", 0.0},    {"007", 7.0},  {"-0.0", -0.0}, {"", kMissing}, {"0.0073", 7.3e-3}};
    for (const auto& [text, value] : good) {
        EXPECT_EQ(ParamStrToDouble(text), value) << '"' << text << '"';
    }
    for (const char* text : {"1.2.3", "1-2", "5-", " 5", "5 ", "1e5", "+5", "--5", ".-5", "-5-", "..", "0x10", "inf",
                             "nan", "1,5", "\xC2\xBD"}) {
        EXPECT_EQ(ParamStrToDouble(text), kInvalid) << '"' << text << '"';
    }
}

TEST(Numbers, OfAnyLengthAreReadLikeTheStandardConversion) {
    std::mt19937 random(20240607);
    for (int i = 0; i < 3000; ++i) {
        std::string text(random() % 3 == 0 ? "-" : "");
        const std::size_t digits = 1 + random() % (i < 2500 ? 40 : 700);
        const std::size_t point = random() % (digits + 2);
        for (std::size_t k = 0; k < digits; ++k) {
            text += k == point ? "." : "";
            text += k < point && i % 7 == 0 ? '0' : static_cast<char>('0' + random() % 10);
        }
        EXPECT_EQ(ParamStrToDouble(text.c_str()), std::strtod(text.c_str(), nullptr)) << text;
    }
    EXPECT_EQ(ParamStrToDouble(("-" + std::string(400, '9')).c_str()), -HUGE_VAL);
    EXPECT_EQ(ParamStrToDouble(("0." + std::string(400, '0') + "9").c_str()), 0.0);
}

TEST(Numbers, AreWrittenLikePrintfDoes) {
    std::vector<double> values = {
        0.0,    -0.0,         0.05,     0.15,      0.25,         0.35,          0.95,
        -0.04,  2500.0,       9.95,     10.05,     1e22,         1e308,         -1e308,
        5e-324, 123456789.05, HUGE_VAL, -HUGE_VAL, std::nan(""), -std::nan(""), std::numeric_limits<double>::max()};
    std::mt19937_64 random(7);
    for (int i = 0; i < 2000; ++i) {
        values.push_back(std::ldexp(static_cast<double>(random() >> 11), static_cast<int>(random() % 60) - 75));
        values.push_back(static_cast<double>(random() % 100000) / 20.0);
    }
    for (const double value : values) {
        for (int places = 0; places <= 9; places += places < 2 ? 1 : 7) {
            char expected[400];
            char written[400];
            std::snprintf(expected, sizeof expected, "%.*f", places, value);
            NumTofString(value, written, static_cast<std::int16_t>(places));
            EXPECT_STREQ(written, expected);
        }
    }
    char small[4] = "xxx";
    NumTofString(123.4, small, 1);
    EXPECT_STREQ(small, "123");
}

TEST(Units, AreKnownByTheirKeywordsInAnyCase) {
    const std::pair<const char*, int> table[] = {
        {"SQFT", 1},     {"Sq Ft", 1},         {"SQ FEET", 1}, {"sqm", 2},       {"SQ M", 2},    {"SQ METERS", 2},
        {"LBS", 3},      {"pounds", 3},        {"KGS", 4},     {"KILOGRAMS", 4}, {"MPH", 5},     {"MILES/HOUR", 5},
        {"mps", 7},      {"METERS/SECOND", 7}, {"MI", 8},      {"Miles", 8},     {"KM", 9},      {"KILOMETERS", 9},
        {"MINUTES", 10}, {"HOURS", 11},        {"", -2},       {" ", -1},        {"SQ. FT", -1}, {"LB", -1},
        {"MPH ", -1},    {"MINUTE", -1},       {"M", -1}};
    for (const auto& [text, code] : table) {
        char field[kFieldSize] = {};
        std::strncpy(field, text, sizeof field - 1);
        EXPECT_EQ(ParamStrToUnits(field), code) << '"' << text << '"';
    }
}

TEST(Letters, AreRaisedInAsciiAlone) {
    for (int byte = -128; byte < 128; ++byte) {
        const char ch = static_cast<char>(byte);
        EXPECT_EQ(my_toupper(ch), byte >= 'a' && byte <= 'z' ? ch - 32 : ch);
    }
    char text[] = "a screening\xE9";
    EXPECT_TRUE(IsScreening(text));
    EXPECT_STREQ(text, "A SCREENING\xE9");
}

TEST(Comparisons, HaveTheirTolerance) {
    EXPECT_TRUE(Equal(1.5, 1.5 + 9e-12));
    EXPECT_FALSE(Equal(1.5, 1.5 + 2e-11));
    EXPECT_FALSE(Equal(HUGE_VAL, HUGE_VAL));
    for (const double whole : {0.0, -3.0, 2147483647.0, -2147483648.0, 10.0 + 1e-12}) {
        EXPECT_TRUE(isInteger(whole)) << whole;
    }
    for (const double broken : {0.5, -0.5, 1.0 - 1e-12, 2147483648.0, -2147483649.0, 1e63, HUGE_VAL, std::nan("")}) {
        EXPECT_FALSE(isInteger(broken)) << broken;
    }
}

}  // namespace
}  // namespace quil
