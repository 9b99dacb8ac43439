// The default rules against typical attacks that must be blocked and ordinary texts that must pass, through the code
// that a new installation and the module use. Cases are lines of cases.txt.

#include <algorithm>
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
#include "tests/port/temporary_directory.h"
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

/// The cases of a line; none when it is no line of cases.
std::vector<Case> ParseCases(std::string_view line) {
  const std::vector<std::string_view> fields = Split(line, '\t');
  if (fields.size() < 3 || (fields[0] != "block" && fields[0] != "pass")) return {};
  std::vector<Place> places = {Place::kQuery, Place::kForm, Place::kJson, Place::kHeader};
  if (fields[1] != "all") {
    places.clear();
    for (const std::string_view name : Split(fields[1], ',')) {
      if (!PlaceFromName(name, &places.emplace_back())) return {};
    }
  }
  std::vector<Case> cases;
  for (std::size_t i = 2; i < fields.size(); ++i) {
    const std::optional<std::string> text = Unescape(fields[i]);
    if (!text || text->empty()) return {};
    cases.push_back({0, fields[0] == "block", places, *text});
  }
  return cases;
}

std::vector<Case> ReadCases() {
  std::vector<Case> cases;
  std::set<std::pair<std::string, std::vector<Place>>> seen;
  std::ifstream file(QIV_TEST_DATA "/cases.txt", std::ios::binary);
  EXPECT_TRUE(file.is_open());
  std::string line;
  for (std::size_t number = 1; std::getline(file, line); ++number) {
    if (line.empty() || line.front() == '#') continue;
    const std::vector<Case> parsed = ParseCases(line);
    EXPECT_FALSE(parsed.empty()) << "cases.txt:" << number << ": no cases: " << line;
    for (Case one : parsed) {
      EXPECT_TRUE(seen.insert({one.text, one.places}).second) << "cases.txt:" << number << ": twice: " << one.text;
      one.line = number;
      cases.push_back(std::move(one));
    }
  }
  return cases;
}

/// An installation of one profile in a folder of its own, removed at the end.
class CInstalled {
 public:
  explicit CInstalled(const std::string& profile, Language language = Language::kEnglish) {
    InitOptions options;
    options.directory = directory_.Root().string();
    options.rules = QIV_RULE_DATA;
    options.profile = profile;
    options.language = language;
    EXPECT_EQ(0, InitInstallation(options));
    std::string error;
    protection_ = LoadProtection(options.directory, &error);
    EXPECT_EQ("", error);
    EXPECT_TRUE(protection_.config);
  }

  const Protection& Get() const { return protection_; }

 private:
  CTemporaryDirectory directory_;
  Protection protection_;
};

const Protection& Default() {
  static const CInstalled installed("default");
  return installed.Get();
}

TEST(DefaultRules, DecideTheCases) {
  const std::vector<Case> cases = ReadCases();
  ASSERT_GT(cases.size(), 100U);
  for (const Case& one : cases) {
    for (const Place place : one.places) {
      const Verdict verdict = Judge(Default(), place, one.text);
      EXPECT_EQ(one.blocked, verdict.mechanism != Mechanism::kNone)
          << "cases.txt:" << one.line << " " << PlaceName(place) << ": " << one.text << "\n"
          << verdict.rule << " " << verdict.reason;
    }
  }
}

// A rule may need several words with any gap between them; so an attack is found, and an ordinary text is not, in the
// middle of a long one.
TEST(DefaultRules, DecideTheCasesInsideALongText) {
  std::string ordinary;
  for (const Case& one : ReadCases()) {
    const bool everywhere = one.places.size() == 4;
    if (!one.blocked && everywhere) ordinary += one.text + "\n";
  }
  ASSERT_GT(ordinary.size(), 2000U);
  const Verdict harmless = Judge(Default(), Place::kForm, ordinary);
  EXPECT_EQ(Mechanism::kNone, harmless.mechanism) << harmless.rule << " " << harmless.reason;
  EXPECT_NE(Mechanism::kNone,
            Judge(Default(), Place::kForm, ordinary + "1 union select 1,2 from t\n" + ordinary).mechanism);
}

TEST(DefaultRules, EveryMechanismDecidesSomething) {
  const auto judged = [&](std::string_view text) { return Judge(Default(), Place::kForm, text).mechanism; };
  EXPECT_EQ(Mechanism::kDetector, judged("1 un/**/ion se/**/lect name from users"));
  EXPECT_EQ(Mechanism::kKeyword, judged("1' and sleep(5)-- "));
  EXPECT_EQ(Mechanism::kEvent, judged("<p onclick=steal>"));
}

// An upload is random bytes to the rules: every byte sequence of a few bytes occurs in it.
TEST(DefaultRules, PassRandomBytes) {
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
        const Verdict verdict = Judge(Default(), place, *content);
        EXPECT_EQ(Mechanism::kNone, verdict.mechanism) << seed << " " << PlaceName(place) << " " << verdict.reason;
      }
    }
  }
}

// Words of a rule that lie far apart in a long document do not make an attack.
TEST(DefaultRules, PassLongDocuments) {
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
      const Verdict verdict = Judge(Default(), place, document);
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
  for (const auto& script : kScripts) {
    for (const Place place : {Place::kQuery, Place::kForm, Place::kHeader}) {
      const Verdict verdict = Judge(Default(), place, script.text);
      EXPECT_EQ(script.mechanism, verdict.mechanism) << PlaceName(place) << ": " << script.text << "\n"
                                                     << verdict.rule << " " << verdict.reason;
    }
  }
}

// Every rule reaches the module with its words and with the remark of the chosen language.
TEST(DefaultRules, HaveRemarksInBothLanguages) {
  for (const Language language : {Language::kEnglish, Language::kChinese}) {
    const CInstalled installed("default", language);
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
  EXPECT_NE(Mechanism::kNone, Judge(strict.Get(), Place::kQuery, kAttack).mechanism);
  EXPECT_TRUE(strict.Get().config->sql.get_mode && strict.Get().config->sql.post_mode);
  for (const Place place : {Place::kQuery, Place::kForm, Place::kHeader}) {
    EXPECT_EQ(Mechanism::kNone, Judge(off.Get(), place, kAttack).mechanism);
  }
}

}  // namespace
}  // namespace qiv
