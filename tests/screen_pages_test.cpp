// `quil screen --compare` and `--html`, as a planner and a browser see them.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "support/process.h"

namespace {

using support::Outcome;
using support::quil;
using support::readFile;
using support::run;
using support::writeFile;

const std::string kChlorine = QUIL_SOURCE_DIR "/examples/chlorine-cylinder.json";

TEST(ScreenCompare, ShowsTheSameReleaseOverTheValuesOfAField) {
    const support::TemporaryFolder folder;
    const std::string svg = folder.file("all.svg");
    const Outcome outcome =
        quil({"screen", kChlorine, "--compare", "amount=10 lb, 150 lb,0 lb", "--units", "km", "--svg", svg});
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_NE(outcome.output.find("  150 lb  3.1  3,090 m             84.2 m\n"), std::string::npos) << outcome.output;
    EXPECT_NE(outcome.output.find("  0 lb: --amount \"0 lb\": "), std::string::npos) << outcome.output;
    const std::string picture = readFile(svg);
    EXPECT_NE(picture.find("class=\"zone series1\""), std::string::npos);
    EXPECT_EQ(picture.find("class=\"zone series2\""), std::string::npos);
    EXPECT_EQ(run({"python3", "-c", "import sys, xml.dom.minidom as m; m.parse(sys.argv[1])", svg}).status, 0);
    const auto json =
        nlohmann::json::parse(quil({"screen", kChlorine, "--no-screening", "--terrain", "open", "--wind", "3 m/s",
                                    "--duration", "10 min", "--compare", "stability=D,A", "--json"})
                                  .output);
    EXPECT_EQ(json["cases"][1]["value"], "A");
    EXPECT_GT(json["cases"][0]["distance"]["meters"], json["cases"][1]["distance"]["meters"]);
    for (const char* wrong : {"stability", "colour=red", "amount=1 lb,many", "units=km,miles", "chemical=a,b"}) {
        const Outcome refused = quil({"screen", kChlorine, "--compare", wrong});
        EXPECT_EQ(refused.status, 1) << wrong;
        EXPECT_NE(refused.errors.find("--compare"), std::string::npos) << refused.errors;
    }
    EXPECT_EQ(quil({"screen", kChlorine, "--compare", "amount=0 lb,-1 lb"}).status, 1);
}

TEST(ScreenHtml, FitsScreenAndPaperInABrowser) {
    const support::TemporaryFolder folder;
    const std::string page = folder.file("page.html");
    const std::string longName = std::string(90, 'W') + " <b>&\"";
    ASSERT_EQ(quil({"screen", kChlorine, "--chemical", longName, "--wind-from", "270", "--html", page}).status, 0);
    const std::string html = readFile(page);
    EXPECT_EQ(html.find("<b>"), std::string::npos);
    for (const char* outside : {"http-equiv", "<link", "<script", "src=", "@import", "url("}) {
        EXPECT_EQ(html.find(outside), std::string::npos) << outside;
    }
    const auto chromium = [&folder](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"chromium", "--headless", "--no-sandbox", "--disable-gpu",
                                             "--disable-dev-shm-usage", "--user-data-dir=" + folder.file("profile")});
        return run(arguments);
    };
    if (run({"bash", "-c", "command -v chromium"}).status != 0) {
        GTEST_SKIP() << "chromium is not installed";
    }
    // Anything that reaches past the page's edge, at the width of a telephone, a tablet and a desk.
    for (const int width : {320, 700, 1200}) {
        std::string measured = html;
        measured.insert(measured.find("</body>"),
                        "<script>document.documentElement.style.width='" + std::to_string(width) +
                            "px';let wide=[];for(const e of document.querySelectorAll('main,main *:not(svg *)'))"
                            "{if(e.getBoundingClientRect().right>" +
                            std::to_string(width) +
                            "+0.5||e.scrollWidth>e.clientWidth+1&&e.clientWidth>0)wide.push(e.tagName)}"
                            "for(const t of document.querySelectorAll('svg text')){const v=t.ownerSVGElement.viewBox."
                            "baseVal,b=t.getBBox();if(!t.getAttribute('transform')&&(b.x<0||b.x+b.width>v.width))"
                            "wide.push(t.textContent)}document.title='wide:'+wide.join()+':end'</script>");
        writeFile(folder.path() / "measured.html", measured);
        const Outcome dom = chromium({"--dump-dom", "file://" + folder.file("measured.html")});
        EXPECT_NE(dom.output.find("wide::end"), std::string::npos)
            << width << dom.output.substr(0, 400) << dom.errors.substr(0, 2000);
    }
    const std::string pdf = folder.file("page.pdf");
    EXPECT_EQ(chromium({"--print-to-pdf=" + pdf, "file://" + page}).status, 0);
    EXPECT_TRUE(readFile(pdf).starts_with("%PDF"));
    const std::string shot = folder.file("page.png");
    EXPECT_EQ(chromium({"--window-size=1000,1600", "--screenshot=" + shot, "file://" + page}).status, 0);
    EXPECT_GT(readFile(shot).size(), 20'000U);
}

}  // namespace
