#include "host/screen_html.h"

#include "host/screen_report.h"
#include "host/screen_svg.h"

namespace host {
namespace {

constexpr std::string_view kStyle = R"(
:root { color-scheme: light dark; --paper: #ffffff; --ink: #1c2733; --quiet: #51606f; --line: #d5dce3; --strong: #b93b16; }
@media screen and (prefers-color-scheme: dark) {
  :root { --paper: #14191f; --ink: #e6ebf0; --quiet: #a3b1bf; --line: #333d48; --strong: #ff9d76; }
}
* { box-sizing: border-box; }
body { margin: 0 auto; padding: 2rem 1.25rem 3rem; max-width: 60rem; background: var(--paper); color: var(--ink);
  font: 1rem/1.5 system-ui, "Segoe UI", "Helvetica Neue", Arial, sans-serif; overflow-wrap: anywhere; }
h1 { font-size: 1.6rem; line-height: 1.25; margin: 0 0 0.25rem; }
h2 { font-size: 1.15rem; margin: 2rem 0 0.5rem; }
p, ul { margin: 0.5rem 0; max-width: 46rem; }
.quiet { color: var(--quiet); }
.answer { font-size: 2rem; line-height: 1.2; font-weight: 700; color: var(--strong); margin: 1rem 0 0; }
table { border-collapse: collapse; width: 100%; max-width: 46rem; }
th, td { text-align: left; vertical-align: top; padding: 0.3rem 0.75rem 0.3rem 0; border-bottom: 1px solid var(--line); }
th { font-weight: 400; color: var(--quiet); width: 35%; min-width: 8rem; }
figure { margin: 1rem 0; }
figure svg { display: block; max-width: 100%; height: auto; }
@media print {
  body { padding: 0; max-width: none; font-size: 10.5pt; }
  h2 { break-after: avoid; }
  figure, tr, li { break-inside: avoid; }
}
)";

std::string element(std::string_view tag, std::string_view text, std::string_view kind = "") {
    std::string out = "<" + std::string(tag);
    out += kind.empty() ? "" : " class=\"" + std::string(kind) + "\"";
    return out + ">" + xmlEscaped(text) + "</" + std::string(tag) + ">\n";
}

std::string row(std::string_view label, std::string_view value) {
    return "<tr>" + element("th", label) + element("td", value) + "</tr>\n";
}

constexpr std::string_view kModelIs[] = {
    "A screening model: one release at ground level, carried by a steady wind over flat ground, spreading as a "
    "Gaussian "
    "plume by Briggs's dispersion curves for open country or towns.",
    "The threat distance is where the concentration on the centre line has fallen to the level of concern.",
    "It is meant to show which releases deserve a closer look.",
};
constexpr std::string_view kModelIsNot[] = {
    "No forecast: hills, buildings, rain, changing wind, fire and explosion are not in it.",
    "No model of gases that are heavier than air and run along the ground, nor of what settles or reacts on the way.",
    "No measure of where it is safe to stand. The curves were measured between 100 m and 10 km; beyond, the formula "
    "only goes on.",
};

template <std::size_t Count>
std::string list(const std::string_view (&items)[Count]) {
    std::string out = "<ul>\n";
    for (const std::string_view item : items) {
        out += element("li", item);
    }
    return out + "</ul>\n";
}

}  // namespace

std::string htmlReport(const Scenario& scenario, const ScreeningResult& result, std::string_view pluginVersion) {
    const std::string title = titleOf(scenario) + ": " + releaseText(scenario);
    std::string page =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n";
    page += element("title", title) + "<style>" + std::string(kStyle) + "</style>\n</head>\n<body>\n<main>\n";
    page += element("h1", title);
    page += element("p", "Hazard screening: how far downwind the air holds more than the level of concern", "quiet");
    std::string distance = distanceText(scenario, result);
    distance.front() = static_cast<char>(
        distance.front() >= 'a' && distance.front() <= 'z' ? distance.front() - 'a' + 'A' : distance.front());
    page += element("p", distance, "answer");
    if (result.footprint) {
        const FootprintPoint widest = result.footprint->widest();
        page += element("p", "Threat distance downwind: " + metersText(result.footprint->distance) +
                                 ". The zone is widest " + metersText(widest.downwind) +
                                 " downwind: " + metersText(widest.halfWidth) + " to each side of the centre line.");
        page += "<figure>\n" + drawSvg(scenario, result) + "</figure>\n";
    }
    page += element("h2", "Inputs") + "<table>\n";
    for (const ScenarioField& field : scenarioFields()) {
        if (const std::string value = scenarioValue(scenario, field); !value.empty() && field.name != "source") {
            page += row(field.name, value);
        }
    }
    page += "</table>\n" + element("h2", "Notes") + "<ul>\n";
    for (const std::string& note : screeningNotes(scenario, result)) {
        page += element("li", note);
    }
    page += "</ul>\n" + element("h2", "What the model is") + list(kModelIs);
    page += element("h2", "What it is not") + list(kModelIsNot);
    page += element("h2", "Sources") + "<ul>\n";
    if (!scenario.source.empty()) {
        page += element("li", scenario.source);
    }
    page += element("li",
                    "Dispersion curves: G. A. Briggs, Diffusion Estimation for Small Emissions, Air Resources "
                    "Atmospheric Turbulence and Diffusion Laboratory, 1973.");
    page += element("li", "Calculated by the QUIL plug-in, version " + std::string(pluginVersion) +
                              ", from the parameter " + result.parameter);
    return page + "</ul>\n</main>\n</body>\n</html>\n";
}

}  // namespace host
