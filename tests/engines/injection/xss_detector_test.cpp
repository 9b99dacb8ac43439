#include "engines/injection/xss_detector.h"

#include <gtest/gtest.h>

#include <utility>

#include "tests/engines/injection/slow_detectors.h"
#include "tests/engines/text_generator.h"

namespace qiv {
namespace {

InjectionLibrary Events(const std::vector<std::string>& names) {
  return InjectionLibrary({}, {}, slow::OneWordRules(names));
}

void CompareEvents(std::string_view text, const InjectionLibrary& library) {
  ASSERT_EQ(XssDetector::EventCheck(text, library), slow::EventCheck(text, library.Events()))
      << "text: " << testing::PrintToString(std::string(text));
}

TEST(XssEventCheck, AgreesWithRepeatedSearches) {
  // Also names that no library should hold: made of blanks, quotes, "=" and "<".
  const InjectionLibrary libraries[] = {
      Events({"o", "oo", "o", "o o"}),
      Events({"oo", "=", " ", "o ", "\"", "o="}),
      Events({"<o", "/o", "o\"=", "oo="}),
  };
  const Tokens tokens = {"<", "o", " ", "=", "\"", "/", "1"};
  for (const InjectionLibrary& library : libraries) {
    ForEachSequence(tokens, 6, [&](std::string_view text) { CompareEvents(text, library); });
    ForRandomSequences(tokens, 40, 60000, [&](std::string_view text) { CompareEvents(text, library); });
  }
  const InjectionLibrary real = Events({"onload", "onerror", "onclick", "onloadx", "on"});
  const Tokens words = {"<img",   "<a",      "<",       ">",  " ", " ", "\t", "=", "=",        "'",    "\"",
                        "onload", "onerror", "onclick", "on", "x", "1", "_",  "/", "alert(1)", "\xC1", "&"};
  ForRandomSequences(words, 20, 60000, [&](std::string_view text) { CompareEvents(text, real); });
}

TEST(XssTagChecks, AgreeWithRepeatedSearches) {
  const Tokens script = {"<script", "<", "script", " ", "\v", ">", "x"};
  ForEachSequence(script, 5, [](std::string_view text) {
    ASSERT_EQ(XssDetector::ScriptTagCheck(text), slow::ScriptTagCheck(text)) << text;
  });
  const auto compare = [](std::string_view text) {
    ASSERT_EQ(XssDetector::JavascriptUrlCheck(text), slow::JavascriptUrlCheck(text)) << text;
  };
  const Tokens url = {"<", "a", "_", " ", "=", "javascript:", "/", "1"};
  ForEachSequence(url, 6, compare);
  ForRandomSequences(url, 40, 60000, compare);
}

TEST(XssDetector, Cases) {
  const InjectionLibrary library = Events({"onerror", "onload"});
  InjectionSettings settings;
  settings.xss_html_action = settings.xss_script_block = settings.xss_script_load = 1;
  constexpr XssType kNone = XssType::kNone;
  constexpr XssType kEvent = XssType::kHtmlEvent;
  constexpr XssType kScript = XssType::kScriptTag;
  constexpr XssType kLoading = XssType::kScriptLoading;
  struct Case {
    std::string text;
    XssType type;
    std::string_view fragment;  // as it stands in the text
  };
  Case cases[] = {
      {"<img src=x onerror=alert(1)>", kEvent, "<img src=x onerror=alert(1)"},
      {"<img+src=x+onerror=alert(1)>", kEvent, "<img+src=x+onerror=alert(1)"},
      {"<img onload=f onerror=g>", kEvent, "<img onload=f onerror=g"},  // list order before text order
      {"<img onerror = \" /x", kEvent, "<img onerror = \" "},
      {"onerror=alert(1)", kNone, ""},
      {"<p onerror=1>", kNone, ""},
      {"<p onerror=(f)>", kNone, ""},
      {"<p xonerror=f>", kNone, ""},
      {"<p/onerror=f>", kNone, ""},
      {"< p onerror=f>", kNone, ""},
      {"a<script>", kScript, "<script>"},
      {"<script >", kScript, "<script >"},
      {"<script src=a.js>", kNone, ""},
      {"<SCRIPT>", kNone, ""},
      {"<a href=javascript:alert(1)>", kLoading, "<a href=javascript:alert(1)>"},
      {"<a href=javascript:1>", kNone, ""},
      {"<a href=javascript:", kNone, ""},
      {"javascript:alert(1)", kNone, ""},
      {"<script><p onerror=f>", kEvent, "<p onerror=f"},  // the order of the checks decides
  };
  for (const Case& c : cases) {
    TextPlace fragment;
    EXPECT_EQ(XssDetector::CheckText(std::string_view(c.text), settings, library, &fragment, false), c.type) << c.text;
    EXPECT_EQ(std::exchange(fragment, {}).In(c.text), c.fragment) << c.text;
    const std::string second = "a=1&+=" + c.text;
    EXPECT_EQ(XssDetector::TagCheck(std::string_view(second), settings, library, &fragment, true), c.type) << c.text;
    EXPECT_EQ(fragment.In(second), c.fragment) << c.text;
  }
}

TEST(XssDetector, SwitchesAndParameters) {
  const InjectionLibrary library = Events({"onerror"});
  const std::string_view text = "q=<p onerror=f>&r=<script>&s=<a b=javascript:c>";
  const struct {
    int event, script, url;
    XssType type;
    std::string_view fragment;
  } cases[] = {
      {1, 1, 1, XssType::kHtmlEvent, "<p onerror=f"},
      {0, 1, 1, XssType::kScriptTag, "<script>"},
      {0, 0, 1, XssType::kScriptLoading, "<a b=javascript:c>"},
      {0, 0, 0, XssType::kNone, ""},
  };
  for (const auto& c : cases) {
    InjectionSettings settings;
    settings.xss_html_action = c.event;
    settings.xss_script_block = c.script;
    settings.xss_script_load = c.url;
    TextPlace fragment;
    EXPECT_EQ(XssDetector::CheckText(text, settings, library, &fragment, true), c.type);
    EXPECT_EQ(fragment.In(text), c.fragment);
  }
  InjectionSettings settings;
  settings.xss_html_action = 1;
  const std::string_view split = "a=<p x&b onerror=f";  // a hit as one text, none by parameters
  TextPlace fragment;
  EXPECT_EQ(XssDetector::TagCheck(split, settings, library, &fragment, true), XssType::kNone);
  EXPECT_EQ(XssDetector::TagCheck(split, settings, library, &fragment, false), XssType::kHtmlEvent);
  settings.xss_form = 1;  // a kind that is off hides no other
  EXPECT_EQ(XssDetector::FormCheck("<a href=javascript:x()><p onerror=x()>", settings, library, &fragment),
            XssType::kHtmlEvent);
  // What stands behind the end of a tag is left to the forms, where they are asked.
  settings.xss_script_load = 1;
  for (const std::string_view behind :
       {"<li class=a>the onerror= was called", "<li class=a>&lt;a href=javascript:x()"}) {
    settings.xss_form = 1;
    EXPECT_EQ(XssDetector::CheckText(behind, settings, library, &fragment, false), XssType::kNone) << behind;
    settings.xss_form = 0;
    EXPECT_NE(XssDetector::CheckText(behind, settings, library, &fragment, false), XssType::kNone) << behind;
  }
}

// Texts that make a repeated search read the same bytes for every occurrence.
TEST(XssDetector, ReadsEveryByteAFixedNumberOfTimes) {
  constexpr std::size_t kSize = 1 << 14;
  constexpr std::size_t kFactor = 6;
  const InjectionLibrary library = Events({"onx", "onx ", "onx   ", " ", "  ", "'", "=", "onx=", "'onx"});
  const struct {
    std::string_view once, repeated;
  } cases[] = {
      {"", "<a onx"},          {"<a ", "onx "},         {"<a", "'onx'"},
      {"<a x", " "},           {"<a ", "'onx =' "},     {"<a ", "onx= ' '"},
      {"<a onx=", "'"},        {"<a onx", " "},         {"<a ", "="},
      {"<a b", " ="},          {"", "<script "},        {"<script", " "},
      {"<a ", "javascript:x"}, {"", "<a javascript:x"}, {"<", "javascript:x "},
      {"<a b", "javascript:"}, {"", "<ajavascript:x"},  {"<a  ", "  javascript:x"},
  };
  for (const auto& [once, repeated] : cases) {
    std::string text(once);
    while (text.size() < kSize) text += repeated;
    std::size_t work = 0;
    XssDetector::EventCheck(text, library, &work);
    EXPECT_LE(work, kFactor * text.size()) << "event: " << once << repeated;
    work = 0;
    XssDetector::ScriptTagCheck(text, &work);
    EXPECT_LE(work, kFactor * text.size()) << "script: " << once << repeated;
    work = 0;
    XssDetector::JavascriptUrlCheck(text, &work);
    EXPECT_LE(work, kFactor * text.size()) << "url: " << once << repeated;
  }
}

}  // namespace
}  // namespace qiv
