// The page of `station summary --html` in a browser.
#include <gtest/gtest.h>
#include <rapidjson/document.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "records/spool.h"
#include "records/summary.h"
#include "support/fixture.h"

namespace records {
namespace {

using support::Contains;

const char kBrowser[] = "/usr/bin/chromium";

// Runs of three days on two stations, one of them with a hostile name.
void Fill(const std::string& address) {
  for (int i = 0; i < 60; ++i) {
    Run run;
    run.id = NewRunId();
    run.device = "SN" + std::to_string(i / 2);
    run.title = "Line";
    run.station = i % 3 == 0 ? "</script><b>\"&'" : "west";
    run.start = std::chrono::system_clock::from_time_t(1763892000 + i * 3600);
    run.seconds = 12.5 + i;
    run.outcome = i % 7 == 0 ? Outcome::kFailed : i % 11 == 0 ? Outcome::kError : Outcome::kPassed;
    Phase phase;
    phase.name = "<script>throw 1</script>";
    for (int s = 0; s < 4; ++s) {
      Step step;
      step.name = "A step with a name as long as some are " + std::to_string(s);
      step.outcome = s == i % 4 ? run.outcome : Outcome::kPassed;
      step.problem = step.outcome == Outcome::kPassed ? "" : "<img src=x onerror=alert(1)>";
      const double number = s == 3 ? 5 : std::sin(i) * 0.01 + 1e5 * s;
      const double limit = s == 1 ? std::numeric_limits<double>::quiet_NaN() : 1e5 * s + 0.02;
      step.measurements = {{"level", "dBHz", "", number, 1e5 * s - 0.02, limit, "", step.outcome}};
      phase.steps.push_back(step);
    }
    run.phases = {phase};
    ASSERT_EQ(StoreRun(address, run).problem, "");
  }
}

class RecordPage : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!std::filesystem::exists(kBrowser))
      GTEST_SKIP() << "Debian's package 'chromium' is not installed";
    Fill(record_);
    ASSERT_EQ(Summarise(record_, {}, &summary_), "");
    std::ofstream page(page_);
    ASSERT_EQ(WriteSummaryPage(record_, {}, summary_, page), "");
  }

  // The page as the browser has made it at this width; what it complains about in *console. The
  // title is then how wide the window is and how wide the page.
  std::string Browse(int width, std::string* console) {
    const std::string name = root_.path() + "/at" + std::to_string(width);
    std::ofstream(name + ".html") << support::ReadFile(page_) << R"(<script>
document.title = innerWidth + ' ' + document.documentElement.scrollWidth;
parent.postMessage([document.title, document.body.innerHTML], '*');
</script>)";
    // A window has at least 500 pixels: the page is shown in a frame.
    std::ofstream(name + "-frame.html")
        << "<title></title><body><script>onmessage = event => {"
           "document.title = event.data[0];"
           "document.body.innerHTML = event.data[1]};</script><iframe width="
        << width << " height=900 style='border:0' src='file://" << name << ".html'></iframe>";
    const std::string command =
        "HOME=" + root_.path() + " timeout 100 " + kBrowser +
        " --headless --no-sandbox --disable-gpu --disable-quic --no-first-run"
        " --disable-background-networking --disable-component-update --disable-sync"
        " --enable-logging=stderr --virtual-time-budget=10000 --user-data-dir=" +
        name + " --window-size=1700,1000 --dump-dom file://" + name + "-frame.html >" + name +
        ".dom 2>" + name + ".log";
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::istringstream log(support::ReadFile(name + ".log"));
    for (std::string line; std::getline(log, line);) {
      if (Contains(line, "CONSOLE")) *console += line + "\n";
    }
    return support::ReadFile(name + ".dom");
  }

  const support::TempRoot root_;
  const std::string record_ = root_.path() + "/line.db";
  const std::string page_ = root_.path() + "/line.html";
  Summary summary_;
};

// The texts of the elements with data-figure, by its value.
std::map<std::string, std::string> Figures(const std::string& dom) {
  const std::string mark = "data-figure=\"";
  std::map<std::string, std::string> figures;
  for (std::size_t at = 0; (at = dom.find(mark, at)) != std::string::npos;) {
    at += mark.size();
    const std::size_t end = dom.find('"', at);
    const std::size_t text = dom.find('>', end) + 1;
    figures[dom.substr(at, end - at)] = dom.substr(text, dom.find('<', text) - text);
  }
  return figures;
}

// Compares every number of the JSON with the figure of the same place.
void Compare(const rapidjson::Value& json, const std::string& place,
             std::map<std::string, std::string>* figures) {
  if (json.IsObject()) {
    for (const auto& member : json.GetObject()) {
      Compare(member.value, place + (place.empty() ? "" : ".") + member.name.GetString(), figures);
    }
  } else if (json.IsArray()) {
    for (rapidjson::SizeType i = 0; i < json.Size(); ++i) {
      Compare(json[i], place + "." + std::to_string(i), figures);
    }
  } else if (!json.IsString()) {
    ASSERT_EQ(figures->count(place), 1U) << place;
    const std::string text = figures->at(place);
    figures->erase(place);
    if (json.IsNull()) {
      EXPECT_TRUE(text.empty() || text == "none") << place << ' ' << text;
      return;
    }
    const bool share = Contains(place, "yield");
    const double shown = std::stod(text) / (share ? 100 : 1);
    EXPECT_NEAR(shown, json.GetDouble(), share ? 0.00051 : std::fabs(json.GetDouble()) * 1e-5)
        << place;
  }
}

TEST_F(RecordPage, ShowsTheFiguresOfTheSummaryInABrowser) {
  for (const int width : {400, 1600}) {
    std::string console;
    const std::string dom = Browse(width, &console);
    EXPECT_EQ(console, "") << width;
    std::map<std::string, std::string> figures = Figures(dom);
    rapidjson::Document json;
    json.Parse(SummaryJson(summary_).c_str());
    Compare(json, "", &figures);
    EXPECT_TRUE(figures.empty()) << "also shown: " << figures.begin()->first;
    const std::size_t title = dom.find("<title>") + 7;
    int window = 0;
    int page = 0;
    ASSERT_EQ(std::sscanf(dom.c_str() + title, "%d %d", &window, &page), 2);
    EXPECT_EQ(window, width);
    EXPECT_LE(page, window) << "it has to be moved sideways";
    // Per step a histogram and a course; yield, stations and Pareto.
    std::size_t pictures = 0;
    for (std::size_t at = 0; (at = dom.find("<svg", at)) != std::string::npos; ++at) ++pictures;
    EXPECT_EQ(pictures, 2 * summary_.measurements.size() + 3);
    EXPECT_EQ(dom.find("<img"), std::string::npos) << "texts are texts";
    EXPECT_EQ(
        dom.find("http://") == std::string::npos || Contains(dom, "http://www.w3.org/2000/svg"),
        true);
  }
}

}  // namespace
}  // namespace records
