// `quil screen --batch`: tables of scenarios, as CSV and in a database.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "host/batch_rows.h"
#include "host/csv_stream.h"
#include "host/plugin.h"
#include "support/process.h"

namespace {

using namespace host;
using support::Outcome;
using support::quil;
using support::readFile;
using support::run;
using support::writeFile;

const std::string kHeader = "name,state,level-of-concern,amount,concentration,duration,screening\n";
const std::string kAdded = ",threat-distance,threat-unit,error-code,error-message\n";

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

using Rows = std::vector<std::vector<std::string>>;

Rows parsed(const std::vector<std::string_view>& pieces) {
    Rows rows;
    CsvReader reader([&rows](const CsvRow& row) {
        rows.emplace_back(row.cells.begin(), row.cells.end());
        if (!row.problem.empty()) {
            rows.back() = {"!" + std::string(row.problem)};
        }
    });
    for (const std::string_view piece : pieces) {
        reader.feed(piece);
    }
    reader.finish();
    return rows;
}

TEST(CsvStream, ReadsTheSameRowsHoweverTheTextIsCut) {
    const std::string text =
        "\xEF\xBB\xBF"
        "a,\"b \"\"c\"\"\",d\r\n\r\n\"1\n2\", 3 ,\xE9\r4,,\n5";
    const Rows rows = {{"a", "b \"c\"", "d"}, {"1\n2", " 3 ", "\xE9"}, {"4", "", ""}, {"5"}};
    for (std::size_t cut = 0; cut <= text.size(); ++cut) {
        EXPECT_EQ(parsed({std::string_view(text).substr(0, cut), std::string_view(text).substr(cut)}), rows) << cut;
    }
    EXPECT_EQ(parsed({"a,b\n1,\"x\ny"}), (Rows{{"a", "b"}, {"!a quote is not closed before the end of the text"}}));
    EXPECT_THROW(parsed({"\xFF\xFE"
                         "a"}),
                 HostError);
    std::string written;
    for (const char* cell : {"a", "", "b,c", "\"", " x", "l\nl"}) {
        appendCsvCell(written, cell);
        written += ',';
    }
    EXPECT_EQ(written, "a,,\"b,c\",\"\"\"\",\" x\",\"l\nl\",");
}

TEST(CsvStream, GoesOnAtTheNextLineAfterACellThatIsTooLong) {
    std::string text = "a,b\n1,\"" + std::string(kLongestCell + 5, 'x') + "\n2,y\n3,z\n";
    const Rows rows = parsed({text});
    ASSERT_EQ(rows.size(), 4U);
    EXPECT_EQ(rows[1][0].substr(0, 6), "!a cel");
    EXPECT_EQ(rows[2], (std::vector<std::string>{"2", "y"}));
    std::string wide;
    for (int i = 0; i < 1'000'000; ++i) {
        wide += "c,";
    }
    EXPECT_EQ(parsed({wide + "\n"}).at(0).size(), 1'000'001U);
}

// A row's parameter, put together from cells that were met before, is the one of its scenario read by itself.
TEST(BatchRows, AskWhatTheSameScenarioAsksAlone) {
    const std::vector<std::pair<std::string, std::vector<std::string>>> pools = {
        {"State", {"gas", "LIQUID", "solid", "", "plasma"}},
        {"level_of_concern", {"8.7 mg/m3", "0.0087 g/m3", "", "1"}},
        {"amount", {"150 lb", "68 kg", "0.5 lb", ""}},
        {"concentration", {"100", "5 %", ""}},
        {"wind", {"3 m/s", "", "3.35 mph"}},
        {"screening", {"yes", "no", ""}},
        {"units", {"km", "miles", ""}},
        {"dike", {"", "400 sqft"}},
        {"wind from", {"", "270", "400"}},
        {"duration", {"10 min", "1 h", ""}},
        {"stability", {"f", "A", ""}},
        {"chemical", {"x|y"}},
    };
    std::vector<std::string_view> header;
    for (const auto& pool : pools) {
        header.push_back(pool.first);
    }
    Scenario base;
    setScenarioField(base, *findScenarioField("dike"), "7 sq m");
    BatchValues values{base, {{"terrain", "urban"}, {"stability", "D"}}};
    BatchRows rows(header, values);
    std::string asked;
    const Calculator calculator{[&asked](std::string_view, std::string_view parameter) {
                                    asked = parameter;
                                    return std::string("1.0");
                                },
                                [] { return std::string(); }};
    std::mt19937 random(7);
    int good = 0;
    for (int i = 0; i < 5000; ++i) {
        std::vector<std::string_view> cells;
        for (const auto& pool : pools) {
            cells.push_back(pool.second[random() % pool.second.size()]);
        }
        std::string problem;
        const std::optional<Scenario> alone = rows.scenario(cells, problem);
        BatchAnswer answer;
        rows.answer(cells, calculator, answer);
        EXPECT_EQ(answer.code == 0, alone.has_value()) << answer.message;
        if (alone) {
            ++good;
            ASSERT_EQ(asked, composeParameter(*alone));
            EXPECT_EQ(answer.unit, alone->units);
        }
    }
    EXPECT_GT(good, 500);
}

TEST(Batch, AnswersEveryRowAndNeverEndsAtABadOne) {
    const std::string input = kHeader +
                              "\"a,1\",gas,0.0087 g/m3,150 lb,100,10 min,yes\r\n"
                              "b,gas,0.0087 g/m3,150 stone,100,10 min,yes\n"
                              "c,gas,0.0087 g/m3,150 lb\n"
                              "\xE9,gas,0.0087 g/m3,150 lb,100,11 min,yes\n"
                              "e,gas,0.0087 g/m3,150 lb,0,10 min,yes\n"
                              "f,gas,8.7 mg/m3,150 lb,100,10 min,yes,more,\n";
    const Outcome outcome = quil({"screen", "--batch", "-", "--units", "km"}, {input});
    EXPECT_EQ(outcome.status, 0);
    const std::vector<std::string> lines = linesOf(outcome.output);
    ASSERT_EQ(lines.size(), 7U) << outcome.output;
    EXPECT_EQ(lines[0] + "\n", kHeader.substr(0, kHeader.size() - 1) + kAdded);
    EXPECT_EQ(lines[1], "\"a,1\",gas,0.0087 g/m3,150 lb,100,10 min,yes,3.1,km,0,");
    EXPECT_NE(lines[2].find(",,,-1,\"amount: \"\"150 stone\"\": unknown unit"), std::string::npos) << lines[2];
    EXPECT_EQ(lines[3], "c,gas,0.0087 g/m3,150 lb,,,,,,-1,\"the row has 4 cells, the header 7\"");
    EXPECT_EQ(lines[4],
              "\xE9,gas,0.0087 g/m3,150 lb,100,11 min,yes,,,16,"
              "Programmer Error: Duration must be 10 minutes for screenings.");
    EXPECT_NE(lines[5].find(",,,-1,\"the calculator found no distance"), std::string::npos) << lines[5];
    EXPECT_EQ(lines[6], "f,gas,8.7 mg/m3,150 lb,100,10 min,yes,,,-1,\"the row has 9 cells, the header 7\"");
    EXPECT_NE(outcome.errors.find("5 of 6 rows have no distance"), std::string::npos) << outcome.errors;
    // An earlier answer is replaced; a row's characters are converted when that is asked for.
    const std::string good = lines[0] + "\n" + lines[1] + "\n" + lines[2] + "\n";
    EXPECT_EQ(quil({"screen", "--batch", "-", "--units", "km"}, {good}).output, good);
    for (const auto& [encoding, letter] : {std::pair{"latin-1", "\xC3\xA9"}, std::pair{"mac-roman", "\xC3\x88"}}) {
        const Outcome converted = quil({"screen", "--batch", "-", "--encoding", encoding}, {input});
        EXPECT_EQ(linesOf(converted.output).at(4).substr(0, 2), letter);
    }
}

TEST(Batch, RefusesWhatIsNoTableOfScenarios) {
    const std::pair<std::string, const char*> cases[] = {
        {"", "standard input: the table is empty"},
        {"\n\n", "the table is empty"},
        {"gas,100\n", "names no field of a scenario"},
        {"state,amount,STATE\n", "the column \"STATE\" stands twice (columns 1 and 3)"},
        {"lat,state,Latitude\n", "the column \"Latitude\" stands twice"},
        {"state,\"amount\n", "a quote is not closed"},
        {std::string("\xFE\xFF\0s", 4), "UTF-16"},
    };
    for (const auto& [text, message] : cases) {
        const Outcome outcome = quil({"screen", "--batch"}, {text});
        EXPECT_EQ(outcome.status, 1) << text;
        EXPECT_EQ(outcome.output, "") << text;
        EXPECT_NE(outcome.errors.find(message), std::string::npos) << outcome.errors;
    }
    EXPECT_NE(quil({"screen", "--batch"}, {"state,amont\n"}).errors.find("did you mean amount?"), std::string::npos);
    EXPECT_EQ(quil({"screen", "--batch", "/no/such/file"}).status, 1);
    for (const std::vector<std::string>& wrong : {std::vector<std::string>{"--table", "a", "b"},
                                                  {"--batch", "--json"},
                                                  {"--batch", "--wind", "1 knot"},
                                                  {"--batch", "-", "--at", "91,0"},
                                                  {"--batch", "--encoding", "ebcdic"}}) {
        std::vector<std::string> command = wrong;
        command.insert(command.begin(), "screen");
        EXPECT_EQ(quil(command, {kHeader}).status, 2) << wrong[0];
    }
}

TEST(Batch, LeavesWholeRowsBehindAnInterruptOrAFullDisk) {
    const support::TemporaryFolder folder;
    const std::string row = "x,gas,0.0087 g/m3,150 lb,100,10 min,yes\n";
    std::string many = kHeader;
    for (int i = 0; i < 5000; ++i) {
        many += row;
    }
    writeFile(folder.path() / "many", many);
    writeFile(folder.path() / "few", kHeader + row);
    const std::string program = std::string(QUIL_BINARY_DIR) + "/quil";
    // The signal comes once the first row is written; the input does not end before.
    const Outcome interrupted = run({"bash", "-c",
                                     "mkfifo in && { '" + program +
                                         "' screen --batch in --geojson map --at 1,2 > out & } && exec 3> in && "
                                         "cat few >&3 && until [ \"$(wc -l < out)\" = 2 ]; do sleep 0.01; done; "
                                         "kill -TERM $! && wait $!"},
                                    {.folder = folder.path().string()});
    EXPECT_EQ(interrupted.status, 143);
    EXPECT_NE(interrupted.errors.find("interrupted; 1 rows are written whole"), std::string::npos)
        << interrupted.errors;
    EXPECT_TRUE(readFile(folder.path() / "out").ends_with(",1.9,miles,0,\n"));
    EXPECT_TRUE(readFile(folder.path() / "map").ends_with("\n]}\n"));

    const Outcome full = run({"bash", "-c", "ulimit -f 100; exec '" + program + "' screen --batch many > out"},
                             {.folder = folder.path().string()});
    EXPECT_EQ(full.status, 1);
    const std::string out = readFile(folder.path() / "out");
    EXPECT_TRUE(out.ends_with(",1.9,miles,0,\n")) << out.substr(out.size() - 60);
    const std::size_t rows = linesOf(out).size() - 1;
    EXPECT_NE(full.errors.find("; 1," + std::to_string(rows - 1000) + " rows are written whole\n"), std::string::npos)
        << rows << full.errors;
    const Outcome noMap =
        run({"bash", "-c", "ulimit -f 100; exec '" + program + "' screen --batch many --at 1,2 --kml map2 > out"},
            {.folder = folder.path().string()});
    EXPECT_EQ(noMap.status, 1);
    EXPECT_NE(noMap.errors.find("map2: cannot be written"), std::string::npos) << noMap.errors;
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "map2"));
}

TEST(BatchTable, AnswersATableInATableBesideIt) {
    const support::TemporaryFolder folder;
    const std::string database = folder.file("plan.db");
    const auto sql = [&database](const std::string& text) {
        const Outcome outcome = run({"sqlite3", database, text});
        EXPECT_EQ(outcome.status, 0) << outcome.errors;
        return outcome.output;
    };
    sql("CREATE TABLE tank (name TEXT PRIMARY KEY, state, level_of_concern, amount, concentration REAL, duration, "
        "screening);"
        "INSERT INTO tank VALUES ('a', 'gas', '8.7 mg/m3', '150 lb', 100.0, '10 min', 1), "
        "('b', 'gas', NULL, '150 lb', 0.001, '10 min', 1), (NULL, 'gas', 0, 0, 0, 0, 0);"
        "CREATE VIEW big AS SELECT name AS tag, * FROM tank;");
    Outcome outcome = quil({"screen", "--batch", "--table", database, "tank"});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_NE(outcome.errors.find("1 rows have no key"), std::string::npos) << outcome.errors;
    const std::string answers = "SELECT key, threat_distance, threat_unit, error_code FROM tank_screening ORDER BY key";
    EXPECT_EQ(sql(answers), "a|1.9|miles|0\nb|||2\n");
    EXPECT_EQ(sql("SELECT count(*) FROM tank_screening WHERE calculated_at LIKE '20__-__-__T__:__:__Z' AND "
                  "plugin_version <> ''"),
              "2\n");
    sql("UPDATE tank SET level_of_concern = '0.01 g/m3', name = 'c' WHERE name = 'b'; UPDATE tank SET amount = '1 kg'");
    EXPECT_EQ(quil({"screen", "--batch", "--table", database, "tank", "--units", "km"}).status, 0);
    EXPECT_EQ(sql(answers), "a|0.3|km|0\nc|< .1|km|0\n");

    EXPECT_EQ(quil({"screen", "--batch", "--table", database, "big", "--key", "tag"}).status, 0);
    EXPECT_EQ(sql("SELECT count(*) FROM big_screening"), "2\n");
    for (const std::vector<std::string>& wrong : {std::vector<std::string>{database, "big"},
                                                  {database, "none"},
                                                  {folder.file("few"), "tank"},
                                                  {"/no/such/folder/db", "tank"}}) {
        outcome = quil({"screen", "--batch", "--table", wrong[0], wrong[1]});
        EXPECT_EQ(outcome.status, 1) << wrong[1];
        EXPECT_NE(outcome.errors.find(wrong[0]), std::string::npos) << outcome.errors;
    }
    // A table that is not the answers' own stays as it is.
    sql("CREATE TABLE x (state); INSERT INTO x VALUES ('gas'); CREATE TABLE x_screening (mine)");
    EXPECT_EQ(quil({"screen", "--batch", "--table", database, "x"}).status, 1);
    EXPECT_EQ(sql("SELECT sql FROM sqlite_master WHERE name = 'x_screening'"), "CREATE TABLE x_screening (mine)\n");
}

}  // namespace
