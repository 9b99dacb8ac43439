// The default rules against typical attacks that must be blocked and ordinary texts that must pass, through the code
// that a new installation and the module use. Cases are lines of cases.txt.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "bench/detection/text_places.h"
#include "common/text.h"
#include "tools/installation.h"

namespace qiv {
namespace {

struct Case {
  std::size_t line = 0;
  bool blocked = false;
  std::vector<Place> places;
  std::string text;
};

int HexDigit(char c) {
  if (IsDigit(c)) return c - '0';
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

/// "\n", "\r", "\t", "\\" and "\xhh" (two lower-case digits); nothing when another byte follows the "\".
std::optional<std::string> Unescape(std::string_view text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      plain += text[i];
      continue;
    }
    const char kind = ++i < text.size() ? text[i] : '\0';
    if (kind == 'x' && i + 2 < text.size() && HexDigit(text[i + 1]) >= 0 && HexDigit(text[i + 2]) >= 0) {
      plain += static_cast<char>(HexDigit(text[i + 1]) * 16 + HexDigit(text[i + 2]));
      i += 2;
    } else if (kind == 'n' || kind == 'r' || kind == 't' || kind == '\\') {
      plain += kind == 'n' ? '\n' : kind == 'r' ? '\r' : kind == 't' ? '\t' : '\\';
    } else {
      return std::nullopt;
    }
  }
  return plain;
}

std::optional<Case> ParseCase(std::string_view line) {
  const std::vector<std::string_view> fields = Split(line, '\t');
  if (fields.size() != 3 || (fields[0] != "block" && fields[0] != "pass")) return std::nullopt;
  Case parsed;
  parsed.blocked = fields[0] == "block";
  if (fields[1] == "all") {
    parsed.places = {Place::kQuery, Place::kForm, Place::kJson, Place::kHeader};
  } else {
    for (const std::string_view name : Split(fields[1], ',')) {
      Place place{};
      if (!PlaceFromName(name, &place)) return std::nullopt;
      parsed.places.push_back(place);
    }
  }
  std::optional<std::string> text = Unescape(fields[2]);
  if (!text || text->empty()) return std::nullopt;
  parsed.text = std::move(*text);
  return parsed;
}

std::vector<Case> ReadCases() {
  std::vector<Case> cases;
  std::set<std::string> seen;
  std::ifstream file(QIV_TEST_DATA "/cases.txt", std::ios::binary);
  EXPECT_TRUE(file.is_open());
  std::string line;
  for (std::size_t number = 1; std::getline(file, line); ++number) {
    if (line.empty() || line.front() == '#') continue;
    std::optional<Case> parsed = ParseCase(line);
    if (!parsed) {
      ADD_FAILURE() << "cases.txt:" << number << ": no case: " << line;
      continue;
    }
    EXPECT_TRUE(seen.insert(line).second) << "cases.txt:" << number << ": twice";
    parsed->line = number;
    cases.push_back(std::move(*parsed));
  }
  return cases;
}

/// An installation of one profile in a folder of its own, removed at the end.
class CInstalled {
 public:
  explicit CInstalled(const std::string& profile, Language language = Language::kEnglish) {
    directory_ =
        (std::filesystem::temp_directory_path() / ("rules_test_" + std::to_string(std::random_device()()))).string();
    EXPECT_TRUE(std::filesystem::create_directory(directory_));
    InitOptions options;
    options.directory = directory_;
    options.rules = QIV_RULE_DATA;
    options.profile = profile;
    options.language = language;
    EXPECT_EQ(0, InitInstallation(options));
    std::string error;
    protection_ = LoadProtection(directory_, &error);
    EXPECT_EQ("", error);
  }
  ~CInstalled() { std::filesystem::remove_all(directory_); }
  CInstalled(const CInstalled&) = delete;
  CInstalled& operator=(const CInstalled&) = delete;

  const Protection& Get() const { return protection_; }

 private:
  std::string directory_;
  Protection protection_;
};

TEST(DefaultRules, DecideTheCases) {
  const std::vector<Case> cases = ReadCases();
  ASSERT_GT(cases.size(), 100U);
  const CInstalled installed("default");
  ASSERT_TRUE(installed.Get().config);
  for (const Case& one : cases) {
    for (const Place place : one.places) {
      const Verdict verdict = Judge(installed.Get(), place, one.text);
      EXPECT_EQ(one.blocked, verdict.mechanism != Mechanism::kNone)
          << "cases.txt:" << one.line << " " << PlaceName(place) << ": " << one.text << "\n"
          << verdict.rule << " " << verdict.reason;
    }
  }
}

// A rule may need several words with any gap between them; so an attack is found, and an ordinary text is not, in the
// middle of a long one.
TEST(DefaultRules, DecideTheCasesInsideALongText) {
  const CInstalled installed("default");
  ASSERT_TRUE(installed.Get().config);
  std::string ordinary;
  for (const Case& one : ReadCases()) {
    const bool everywhere = one.places.size() == 4;
    if (!one.blocked && everywhere) ordinary += one.text + "\n";
  }
  ASSERT_GT(ordinary.size(), 2000U);
  const Verdict harmless = Judge(installed.Get(), Place::kForm, ordinary);
  EXPECT_EQ(Mechanism::kNone, harmless.mechanism) << harmless.rule << " " << harmless.reason;
  EXPECT_NE(Mechanism::kNone,
            Judge(installed.Get(), Place::kForm, ordinary + "1 union select 1,2 from t\n" + ordinary).mechanism);
}

TEST(DefaultRules, EveryMechanismDecidesSomething) {
  const CInstalled installed("default");
  ASSERT_TRUE(installed.Get().config);
  const auto judged = [&](std::string_view text) { return Judge(installed.Get(), Place::kForm, text).mechanism; };
  EXPECT_EQ(Mechanism::kDetector, judged("1) un/**/ion se/**/lect name from users"));
  EXPECT_EQ(Mechanism::kKeyword, judged("1' and sleep(5)-- "));
  EXPECT_EQ(Mechanism::kEvent, judged("<p onclick=steal>"));
}

// An upload is random bytes to the rules: every byte sequence of a few bytes occurs in it.
TEST(DefaultRules, PassRandomBytes) {
  const CInstalled installed("default");
  ASSERT_TRUE(installed.Get().config);
  constexpr std::string_view kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (unsigned seed = 1; seed <= 6; ++seed) {
    std::mt19937_64 random(seed);
    std::string bytes(512 * 1024, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    std::string base64 = bytes;
    for (char& c : base64) c = kBase64[static_cast<unsigned char>(c) % kBase64.size()];
    std::string wide;
    for (const char c : bytes.substr(0, 64 * 1024)) wide += {static_cast<char>(c & 0x7F), '\0'};
    for (const std::string* const content : {&bytes, &base64, &wide}) {
      for (const Place place : {Place::kFile, Place::kRawBody}) {
        const Verdict verdict = Judge(installed.Get(), place, *content);
        EXPECT_EQ(Mechanism::kNone, verdict.mechanism) << seed << " " << PlaceName(place) << " " << verdict.reason;
      }
    }
  }
}

// Words of a rule that lie far apart in a long document do not make an attack.
TEST(DefaultRules, PassLongDocuments) {
  const CInstalled installed("default");
  ASSERT_TRUE(installed.Get().config);
  std::vector<std::string> ordinary;
  for (const Case& one : ReadCases()) {
    if (!one.blocked && one.places.size() == 4) ordinary.push_back(one.text);
  }
  ASSERT_GT(ordinary.size(), 50U);
  std::mt19937 random(1);
  for (int round = 0; round < 4; ++round) {
    std::string document;
    while (document.size() < 128 * 1024) document += ordinary[random() % ordinary.size()] + "\n";
    for (const Place place : {Place::kForm, Place::kJson, Place::kFile, Place::kRawBody}) {
      const Verdict verdict = Judge(installed.Get(), place, document);
      EXPECT_EQ(Mechanism::kNone, verdict.mechanism) << PlaceName(place) << " " << verdict.rule << verdict.reason;
    }
  }
}

// Keyword rules run first and say "SQL injection": they leave to the XSS detector what it finds itself.
TEST(DefaultRules, NameScriptsAsScripts) {
  constexpr struct {
    std::string_view text;
    Mechanism mechanism;
  } kScripts[] = {
      {"<script>alert(1)</script>", Mechanism::kScriptTag},
      {"\"><SCRIPT >alert(document.cookie)</SCRIPT>", Mechanism::kScriptTag},
      {"<img src=x onerror=alert(1)>", Mechanism::kEvent},
      {"<img src=\"x\" onerror=\"alert('x')\">", Mechanism::kEvent},
      {"<svg onload=alert(1)>", Mechanism::kEvent},
      {"<body onload=alert(1)>", Mechanism::kEvent},
      {"<div onmouseover=\"confirm(1)\">x</div>", Mechanism::kEvent},
      {"<a href=javascript:alert(1)>x</a>", Mechanism::kScriptUrl},
      {"<a href=\"javascript:alert(1)\">x</a>", Mechanism::kScriptUrl},
      {"<iframe src=javascript:prompt(1)>", Mechanism::kScriptUrl},
  };
  const CInstalled installed("default");
  ASSERT_TRUE(installed.Get().config);
  for (const auto& script : kScripts) {
    for (const Place place : {Place::kQuery, Place::kForm, Place::kHeader}) {
      const Verdict verdict = Judge(installed.Get(), place, script.text);
      EXPECT_EQ(script.mechanism, verdict.mechanism) << PlaceName(place) << ": " << script.text << "\n"
                                                     << verdict.rule << " " << verdict.reason;
    }
  }
}

// Every rule reaches the module with its words and with the remark of the chosen language.
TEST(DefaultRules, HaveRemarksInBothLanguages) {
  for (const Language language : {Language::kEnglish, Language::kChinese}) {
    const CInstalled installed("default", language);
    ASSERT_TRUE(installed.Get().config);
    const WebsiteConfig& config = *installed.Get().config;
    for (const CKeywordRules* const rules : {&config.get_rules, &config.post_rules, &config.header_rules}) {
      EXPECT_GT(rules->Rules().size(), 500U);
      for (const InjectionRule& rule : rules->Rules()) {
        EXPECT_FALSE(rule.words.empty()) << rule.identifier;
        const bool ascii = std::all_of(rule.remark.begin(), rule.remark.end(), [](char c) { return (c & 0x80) == 0; });
        EXPECT_EQ(language == Language::kEnglish, ascii && !rule.remark.empty()) << rule.identifier;
      }
    }
  }
}

TEST(Profiles, LoadAndMeanWhatTheirNamesSay) {
  constexpr std::string_view kAttack = "1' or '1'='1' union select 1,2,3-- ";
  const CInstalled strict("strict");
  const CInstalled off("off");
  ASSERT_TRUE(strict.Get().config && off.Get().config);
  EXPECT_NE(Mechanism::kNone, Judge(strict.Get(), Place::kQuery, kAttack).mechanism);
  EXPECT_TRUE(strict.Get().config->sql.get_mode && strict.Get().config->sql.post_mode);
  for (const Place place : {Place::kQuery, Place::kForm, Place::kHeader}) {
    EXPECT_EQ(Mechanism::kNone, Judge(off.Get(), place, kAttack).mechanism);
  }
}

}  // namespace
}  // namespace qiv
