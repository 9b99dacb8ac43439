#include "engines/webshell/script_content.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "engines/webshell/webshell_scan.h"

namespace qiv {
namespace {

using std::string_literals::operator""s;

TEST(ScriptContent, TellsWhereServerCodeMayBegin) {
  const std::string wide = "\xFF\xFE<\0%\0e\0v\0a\0l\0"s;
  const std::string wide_other_end = "\xFE\xFF\0<\0?\0p"s;
  for (const std::string& text :
       {"<?php x"s, "\xFF\xD8\x01<?PHP\n"s, "<?=1"s, "<?eval(1);"s, "<?$f(1)?>\x04"s, "<%eval request(1)%>"s,
        "<% '\x01\x02"s, "<?/*\x01*/x"s, "<SCRIPT Language=VBScript RUNAT=Server>"s, "<script language='php'>"s, "<?"s,
        "<?xml version='1.0'?><?php"s, "<%rem \x01"s, wide, wide_other_end}) {
    EXPECT_TRUE(HoldsServerCode(text)) << text;
  }
  for (const std::string& text :
       {""s, "<"s, "a < b % c ? d"s, "<?xml version=\"1.0\"?>"s, "<?xpacket begin=\"\"?>"s, "<%\x01\x02\x03"s,
        "<?a\xF0\x02$x"s, "<script src='x.js'>"s, "\xFF\xFE<\0p\0"s, "<\0%\0"s, "<script\n" + std::string(5000, ' ')}) {
    EXPECT_FALSE(HoldsServerCode(text)) << text;
  }
}

TEST(ScriptContent, ReadsNamesAsServersDo) {
  for (const std::string name : {"a.php", "A.PHP", "a.php.jpg", "a.phtml", "a.pHp7"}) {
    EXPECT_EQ(ScriptLanguageOfName(name), ScriptLanguage::kPhp) << name;
  }
  for (const std::string name : {"a.asp", "a.asp;.jpg", "a.cer", "a.asp.txt"}) {
    EXPECT_EQ(ScriptLanguageOfName(name), ScriptLanguage::kAsp) << name;
  }
  EXPECT_EQ(ScriptLanguageOfName("a.ashx"), ScriptLanguage::kAspx);
  for (const std::string name : {"php", "a.js", "a.inc", "a.phpx", "", ".", "a.;.php"}) {
    EXPECT_EQ(ScriptLanguageOfName(name), ScriptLanguage::kNone) << name;
  }
}

struct Extraction {
  std::string joined;
  std::size_t parts = 0;
};

// Added in pieces of `piece` bytes.
Extraction Extract(CodeFamily family, bool every_mark, std::string_view text, std::size_t piece) {
  Extraction result;
  CServerCode code(family, every_mark, [&](std::string_view part) {
    EXPECT_LE(part.size(), CQivLibs::kLongestText);
    EXPECT_TRUE(every_mark || HoldsServerCode(part));
    result.joined += part;
    ++result.parts;
    return true;
  });
  for (; !text.empty(); text.remove_prefix(std::min(piece, text.size()))) code.Add(text.substr(0, piece));
  code.End();
  return result;
}

TEST(ScriptContent, TakesOutServerCode) {
  constexpr CodeFamily kPhp = CodeFamily::kPhp;
  constexpr CodeFamily kShort = CodeFamily::kPhpShort;
  constexpr CodeFamily kAsp = CodeFamily::kAsp;
  struct Case {
    CodeFamily family;
    std::string text;
    std::string code;
  };
  const Case cases[] = {
      {kPhp, "html <b> <?php a();  \n\n b(); ?> <% x %> <?= $c ?>", "<?php a();\nb(); ?>\n<?= $c ?>\n"},
      {kPhp, "<?php a(/* ?> */1); // ?> gone <?php #[A]\n# b ?>", "<?php a( 1); ?>\n<?php #[A]\n?>\n"},
      {kPhp, "<?php $a='?>\\'//'; $b=\"/*\"; c();", "<?php $a='?>\\'//'; $b=\"/*\"; c();"},
      {kPhp, "<?php $a=<<< 'EOT'\n ?>'/* EOTX\n   EOT; b(); // c", "<?php $a=<<< 'EOT'\n ?>'/* EOTX\n   \nEOT; b(); "},
      {kPhp, "<script language=\"php\">a();</script>b", "<?php a();?>\n"},
      {kPhp, "<? a(); ?>", ""},
      {kShort, "<? a(); ?>", "<?php a(); ?>\n"},
      {kShort, "<?php a(); ?>", ""},
      {kShort, "<? a \x01 ?> <? b(); ?>", "<?php b(); ?>\n"},
      {kAsp, "x<%= a %><p><%b '\x01\n%>", "<% = a %>\n<% b '\x01\n%>\n"},
      {kAsp, "<script runat=server>a</script>", "<% a%>\n"},
      {kAsp, "<%s> no end", ""},
      {kAsp, "<% a %><%s> no end", "<% a %>\n"},
  };
  for (const Case& c : cases) {
    for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, std::size_t{1} << 20}) {
      EXPECT_EQ(Extract(c.family, false, c.text, piece).joined, c.code) << c.text << " by " << piece;
    }
  }
  EXPECT_EQ(Extract(kAsp, true, "<%\x01 a", 1).joined, "<% \x01 a") << "in a script every mark counts";
}

TEST(ScriptContent, PaddingHidesNothing) {
  const std::string blanks(3 << 20, ' ');
  const std::string many(3 << 20, 'x');
  std::string calls;
  while (calls.size() < (5U << 20)) calls += "call(1);";
  std::string blocks;
  while (blocks.size() < (5U << 20)) blocks += "<?php?>";
  struct Case {
    std::string text;
    std::size_t parts;
  };
  const Case cases[] = {
      {many + "<?php " + blanks + "hit();", 1},
      {"<?php /*" + many + "*/ hit();", 1},
      {"<?php //" + many + "\n hit();", 1},
      {"<?php $a='" + many + "'; hit();", 1},
      {"<?php $a=<<<E\n'" + many + "\nE;\nhit();", 1},
      {"<?php " + calls + "hit();", 3},
      {blocks + "<?php hit();", 4},
  };
  for (const Case& c : cases) {
    const Extraction extraction = Extract(CodeFamily::kPhp, true, c.text, 4 << 20);
    EXPECT_EQ(extraction.parts, c.parts) << c.text.substr(0, 20);
    EXPECT_NE(extraction.joined.find("hit();"), std::string::npos) << c.text.substr(0, 20);
  }
}

TEST(ScriptContent, StopsWhenNoMoreIsWanted) {
  int parts = 0;
  CServerCode code(CodeFamily::kAsp, true, [&](std::string_view) { return ++parts < 2; });
  const std::string text = "<% " + std::string(3 << 20, 'x');
  EXPECT_TRUE(code.Add(text));
  EXPECT_FALSE(code.Add(text));
  EXPECT_FALSE(code.Add(text));
  EXPECT_FALSE(code.End());
  EXPECT_EQ(parts, 2);
}

}  // namespace
}  // namespace qiv
