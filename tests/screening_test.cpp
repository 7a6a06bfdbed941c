// The screening calculator's inputs and checks: fields, numbers, units, the seventeen checks and their order.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "screening/checks.h"
#include "screening/inputs.h"
#include "screening/model.h"

namespace quil {
namespace {

// Scenarios that pass every check.
constexpr char kGas[] = "|0.0087|G|OPEN|2.5|MPS|150|LBS|100|D||||||10|MINUTES|||MI";
constexpr char kLiquid[] = "|0.0087|L|OPEN|2.5|MPS|150|LBS|100|D||AMBIENT|0.02|0.1||||||MI";
constexpr char kMolten[] = "|0.0087|S|OPEN|2.5|MPS|150|LBS|100|D|MOLTEN||||0.01|||||MI";
constexpr char kWorst[] = "SCREEN|0.0087|G|OPEN|3.35|MPH|150|LBS|100|F||||||10|MINUTES|||MI";

// The scenario with other texts in some fields, numbered from 1: "5=1.99 10=C".
std::string with(const std::string& scenario, const std::string& edits) {
    std::vector<std::string> fields(1);
    for (const char c : scenario) {
        c == '|' ? fields.emplace_back() : fields.back() += c;
    }
    std::istringstream words(edits);
    for (std::string word; words >> word;) {
        fields.at(std::stoul(word) - 1) = word.substr(word.find('=') + 1);
    }
    std::string text;
    for (const std::string& field : fields) {
        text += field + "|";
    }
    return text.substr(0, text.size() - 1);
}

// "code flag message"; the code and the flag of an accepted scenario are 0.
std::string judge(const ScreeningInputs& inputs) {
    std::int16_t code = 77;
    std::uint8_t flag = 77;
    MessageBuffer message;
    std::memset(message, 'x', sizeof message);
    const double meters = CalculatePlumeDistance(inputs, message, &code, &flag);
    EXPECT_EQ(meters == -1.0, code != 0);
    return std::to_string(code) + " " + std::to_string(flag) + " " + message;
}
std::string judge(const std::string& scenario) {
    return judge(ParseScreeningInputs(scenario.c_str()));
}

TEST(Checks, RejectWithTheirCodeFlagAndMessage) {
    const struct {
        const char* scenario;
        const char* edits;
        std::string verdict;
        bool ofRecord = false;  // the message goes on: the substance's record is at fault
    } rows[] = {
        {kWorst, "2=", "2 0 Missing level of concern", true},
        {kWorst, "2=0", "2 0 Invalid level of concern", true},
        {kGas, "2=", "2 1 Please enter a level of concern (gm/m3)."},
        {kGas, "2=-0.0",
         "2 1 This is not a valid level of concern; please enter a new number (must be greater than zero)."},
        {kWorst, "3=", "3 0 Missing physical state", true},
        {kWorst, "3=X", "3 0 Invalid physical state", true},
        {kGas, "3=", "3 0 Please specify physical state."},
        {kGas, "3=P", "3 0 Programmer Error: invalid physical state."},
        {kWorst, "4=URBAN", "4 0 Programmer Error: Open topography is required under Screenings."},
        {kGas, "4=", "4 1 Please specify terrain (open or urban)."},
        {kWorst, "6=x", "6 0 Programmer Error: invalid wind speed units."},
        {kWorst, "5=3.36", "5 0 Programmer Error: Wind speed must be 3.35 mph for screenings."},
        {kWorst, "6=MPS", "5 0 Programmer Error: Wind speed must be 1.5 mps for screenings."},
        {kGas, "5=", "5 1 Please enter a wind speed."},
        {kGas, "5=x", "5 1 Wind speed invalid; please enter a new number."},
        {kGas, "5=2.29 6=MPH", "5 1 Speed must be between 2.3 and 134 miles per hour. Please modify your value."},
        {kGas, "5=0.99", "5 1 Speed must be between 1 and 60 meters per second. Please modify your value."},
        {kWorst, "10=E", "10 0 Programmer Error: Stability class must be F for screenings."},
        {kGas, "10=G", "10 1 Programmer Error: invalid stability class."},
        {kGas, "5=1.99 10=C",
         "10 1 Stability class must be A, B, D, E, or F for this wind speed. Please choose one of these five classes."},
        {kGas, "5=3.01 10=A",
         "10 1 Stability class must be B, C, D, or E for this wind speed. Please choose one of these four classes."},
        {kGas, "5=5.01 10=A",
         "10 1 Stability class must be  C or D for this wind speed. Please choose either of these classes."},
        {kWorst, "16=11", "16 0 Programmer Error: Duration must be 10 minutes for screenings."},
        {kGas, "16=", "16 1 Please enter a release duration."},
        {kGas, "16=x", "16 1 Release duration invalid; please enter a new number (must be greater than zero)."},
        {kGas, "16=1.5", "16 1 Programmer Error: release duration must be integer."},
        {kGas, "8=x", "8 0 Programmer Error: Invalid units for max quantity."},
        {kGas, "7=", "7 1 Please enter the amount released."},
        {kWorst, "7=0", "7 1 Amount released invalid; please enter a new number (must be greater than zero)."},
        {kGas, "9=", "9 1 Please enter a concentration (in weight percent)."},
        {kGas, "9=x", "9 1 Concentration invalid; please enter a new number (in weight percent)."},
        {kGas, "9=-0.01", "9 1 Please enter a concentration (weight percent) value between 0 and 100."},
        {kMolten, "11= 16=10", "11 1 Please specify the form of this solid."},
        {kMolten, "11=OTHER 16=10", "11 1 Programmer Error: invalid solid form."},
        {kMolten, "15=", "15 0 Missing liquid factor molten", true},
        {kMolten, "15=0", "15 0 Invalid liquid factor molten", true},
        {kLiquid, "12=", "12 1 Please indicate whether this liquid is at ambient or near boiling temperature."},
        {kLiquid, "13=", "13 0 Missing liquid factor ambient", true},
        {kLiquid, "13=x", "13 0 Invalid liquid factor ambient", true},
        {kLiquid, "12=BOIL 14=", "14 0 Missing liquid factor boiling", true},
        {kLiquid, "12=BOIL 14=-2", "14 0 Invalid liquid factor boiling", true},
        {kLiquid, "19=x", "19 0 Programmer Error: Invalid units for diked area."},
        {kLiquid, "18=x", "18 0 Invalid diked area value. Please enter a new number."},
    };
    for (const auto& row : rows) {
        const std::string rest = " in this substance's chemical record. Unable to calculate radius.";
        EXPECT_EQ(judge(with(row.scenario, row.edits)), row.verdict + (row.ofRecord ? rest : "")) << row.edits;
    }
    // What no text can say.
    ScreeningInputs inputs = ParseScreeningInputs(kGas);
    inputs.terrain = 'X';
    EXPECT_EQ(judge(inputs), "4 1 Programmer Error: invalid terrain.");
    inputs = ParseScreeningInputs(kLiquid);
    inputs.liquidTemperature = 'X';
    EXPECT_EQ(judge(inputs), "12 1 Programmer Error: invalid liquid form.");
    inputs = ParseScreeningInputs(with(kGas, "18=-1").c_str());
    inputs.liquidTemperature = 'M';
    EXPECT_EQ(judge(inputs), "18 0 Invalid diked area value. Please enter a new number.");
}

TEST(Checks, AcceptTheirLimitsAndWhatDoesNotApply) {
    // A speed in another unit has no limits, and the classes take it for miles per hour. A worst case's speed is
    // checked in two units alone.
    const struct {
        int code;
        const char* scenario;
        std::vector<const char*> edits;
    } rows[] = {
        {0,
         kGas,
         {"", "5=2.3 6=MPH 10=A", "5=134 6=MPH 10=C", "5=1 10=F", "5=60", "5=1.99 10=D", "5=2 10=C", "5=3 10=A",
          "5=3 10=F", "5=3.01 10=B", "5=5 10=E", "5=5.01 10=C", "5=500 6=KM", "17=x", "16=2147483647", "8=MI", "9=0",
          "18=x", "19=x"}},
        {0, kWorst, {"", "5=1.5 6=MPS", "5= 6=", "17=HOURS"}},
        {0, kLiquid, {"", "18=0"}},
        {0, kMolten, {"", "18=x"}},
        {5, kGas, {"5=134.01 6=MPH", "5=60.01"}},
        {10, kGas, {"5=5 10=F", "5=5.5 10=B", "10=@", "10=", "5=4.47 6=MPH 10=C", "5=4.47 6= 10=C", "5=12 6=MPH 10=E"}},
        {16, kGas, {"16=0", "16=2147483648"}},
        {19, kGas, {"11=MOLTEN 19=x"}},
        {2, kWorst, {"2=x"}},
        {4, kWorst, {"4="}},
        {16, kWorst, {"16="}},
        {15, kMolten, {"15=x"}},
        {16, kMolten, {"11=POWDER"}},
        {19, kMolten, {"19=x"}},
        {13, kLiquid, {"13=0"}},
        {14, kLiquid, {"12=BOIL 14=x"}},
        {18, kLiquid, {"18=-0.01"}}};
    for (const auto& row : rows) {
        for (const char* edits : row.edits) {
            const std::string verdict = judge(with(row.scenario, edits));
            EXPECT_EQ(std::stoi(verdict), row.code) << row.scenario << ' ' << edits << ": " << verdict;
            EXPECT_TRUE(row.code != 0 || verdict == "0 0 ") << verdict;
        }
    }
    for (const char* stability : {"10=A", "10=B", "10=C", "10=D", "10=E", "10=F"}) {
        EXPECT_EQ(judge(with(kGas, stability)), "0 0 ");
    }
}

// Everything is wrong; each repair, of the field with the check's number, uncovers the check that is next in order.
TEST(Checks, RunInTheirOrder) {
    for (const char* repairs : {"2=1 3=S 4=URBAN 6=MPS 5=2.5 10=D 16=10 8=LBS 7=10 9=50 11=MOLTEN 15=.1 19=",
                                "2=1 3=L 4=URBAN 6=MPS 5=2.5 10=D 8=LBS 7=10 9=50 12=AMB 13=.1 19=SQFT 18=1"}) {
        std::string scenario = "|||||x||x||||||||||-1|x|";
        std::istringstream words(repairs);
        for (std::string repair; words >> repair; scenario = with(scenario, repair)) {
            EXPECT_EQ(std::stoi(judge(scenario)), std::stoi(repair)) << scenario;
        }
        EXPECT_EQ(judge(scenario), "0 0 ");
    }
}

TEST(Checks, LeaveTheModelAloneWhenTheyReject) {
    judge(std::string(kGas));
    ASSERT_EQ(LOC, 0.0087);
    ResetScreening();
    judge(with(kGas, "4="));
    EXPECT_EQ(LOC, 0.0);
    EXPECT_EQ(SY1, 0.0);
}

TEST(Fields, AreSplitAtBarsAndCutToTheirBuffer) {
    char field[5];
    const char* next = "ab||abcdefg|x";
    for (const char* expected : {"ab", "", "abcd", "x", ""}) {
        next = GetParameter(next, field, sizeof field);
        EXPECT_STREQ(field, expected);
    }
    EXPECT_EQ(*next, '\0');
    char one[2] = {'q', 'q'};
    EXPECT_STREQ(GetParameter("ab|c", one, 1), "c");
    EXPECT_EQ(std::string(one, 2), std::string("\0q", 2));
}

// The inputs in the order of their fields.
std::string told(const std::string& scenario) {
    const ScreeningInputs in = ParseScreeningInputs(scenario.c_str());
    std::ostringstream text;
    text << +in.screening << '|' << in.levelOfConcern << '|' << in.physicalState << '|' << in.terrain << '|'
         << in.windSpeed << '|' << in.windUnit << '|' << in.amount << '|' << in.amountUnit << '|' << in.concentration
         << '|' << in.stabilityClass << '|' << in.solidForm << '|' << in.liquidTemperature << '|'
         << in.liquidFactorAmbient << '|' << in.liquidFactorBoiling << '|' << in.liquidFactorMolten << '|'
         << in.duration << '|' << in.durationUnit << '|' << in.dikeArea << '|' << in.dikeAreaUnit << '|'
         << in.distanceUnit;
    std::string result = text.str();
    std::erase(result, '\0');
    return result;
}

TEST(Fields, GoWhereTheyBelongAndAreMissingWhenAbsent) {
    // Powder is tried before molten, ambient before boiling.
    EXPECT_EQ(told("Screening|1|gas|an Urban area|2|mph|3|Kilograms|4|f|molten powder|near boiling, not "
                   "ambient|5|6|7|8|hours|9|Sq Ft|km|21"),
              "1|1|G|U|2|5|3|4|4|F|P|A|5|6|7|8|11|9|1|9");
    for (const char* text : {"", "|||||||||||||||||||", "SCR"}) {
        EXPECT_EQ(told(text), "0|-99989|||-99989|-2|-99989|-2|-99989||||-99989|-99989|-99989|-99989|-2|-99989|-2|-2");
    }
}

TEST(Fields, KeepSixtyThreeCharacters) {
    const std::string zeros(61, '0');
    EXPECT_EQ(told("|" + zeros + "123|L").substr(0, 6), "0|12|L");
    EXPECT_EQ(told(std::string(57, ' ') + "SCREEN")[0], '1');
    EXPECT_EQ(told(std::string(58, ' ') + "SCREEN")[0], '0');
}

TEST(Numbers, AreReadAsWritten) {
    const std::pair<const char*, double> good[] = {
        {"0", 0.0}, {"3.35", 3.35}, {"-.5", -0.5}, {"-5", -5.0},   {"5.", 5.0},          {".5", 0.5},       {"-", 0.0},
        {".", 0.0}, {"-.", 0.0},    {"007", 7.0},  {"-0.0", -0.0}, {"", kMissingNumber}, {"0.0073", 7.3e-3}};
    for (const auto& [text, value] : good) {
        EXPECT_EQ(ParamStrToDouble(text), value) << '"' << text << '"';
    }
    for (const char* text : {"1.2.3", "5-", " 5", "5 ", "1e5", "+5", "--5", ".-5", "..", "0x10", "inf", "1,5"}) {
        EXPECT_EQ(ParamStrToDouble(text), kInvalidNumber) << '"' << text << '"';
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
        0.0,  -0.0,   0.05,   0.25,     0.35,      0.95,         -0.04,         9.95,
        1e22, -1e308, 5e-324, HUGE_VAL, -HUGE_VAL, std::nan(""), -std::nan(""), std::numeric_limits<double>::max()};
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
        {"SQFT", 1},     {"Sq Ft", 1},         {"SQ FEET", 1}, {"sqm", 2},       {"SQ M", 2},  {"SQ METERS", 2},
        {"LBS", 3},      {"pounds", 3},        {"KGS", 4},     {"KILOGRAMS", 4}, {"MPH", 5},   {"MILES/HOUR", 5},
        {"mps", 7},      {"METERS/SECOND", 7}, {"MI", 8},      {"Miles", 8},     {"KM", 9},    {"KILOMETERS", 9},
        {"MINUTES", 10}, {"HOURS", 11},        {"", -2},       {" ", -1},        {"MPH ", -1}, {"M", -1}};
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
