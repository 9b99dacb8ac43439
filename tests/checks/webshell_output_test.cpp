#include "checks/webshell_output_check.h"

#include <gtest/gtest.h>

#include "engines/webshell/webshell_output.h"
#include "engines/webshell/webshell_scan.h"
#include "tests/checks/check_fixture.h"

namespace qiv {
namespace {

class WebshellOutput : public CCheckFixture {
 protected:
  WebshellOutput() {
    site_->base.trojan = site_->base.trojan_webout = 1;
    webshells_ = std::make_shared<CQivLibs>();
    UseSite();
  }
  std::string Run(const std::string& response) {
    response_ = response;
    CheckResult result;
    WebshellOutputCheck(facts_, Context(), result);
    return result.detail;
  }
};

const std::string kManager =
    "<title>FilesMan</title> Uname: Linux web 5.10 User: 33 Safe mode: OFF<form action='?' method=post>"
    "<input type='hidden' name=c><input type=file name=f><textarea name=x></textarea></form> drwxr-xr-x Rename Chmod";

TEST_F(WebshellOutput, FindsPanelsAndLeakedScripts) {
  const std::string cut = std::string(kOutputBytes, ' ');
  const std::pair<std::string, std::string> cases[] = {
      {kManager + " Symlink Back connect Bruteforce", "Deny webshell(Response),Type:Page of a webshell,Keywords:"},
      {"<form><input name=cmd></form>\xE6\x9C\xA8\xE9\xA9\xAC \xE6\x8F\x90\xE6\x9D\x83 cmd.exe "
       "\xE6\x89\xA7\xE8\xA1\x8C\xE5\x91\xBD\xE4\xBB\xA4",
       "Deny webshell(Response),Type:Page of a webshell"},
      {"<form><input name=cmd></form>\xC4\xBE\xC2\xED \xCC\xE1\xC8\xA8 cmd.exe \xD6\xB4\xD0\xD0\xC3\xFC\xC1\xEE",
       "Deny webshell(Response),Type:Page of a webshell"},
      {"<html><?php eval($_POST[1]); ?></html>", "Deny webshell(Response[Script source]),Type:Backdoor"},
      {"<% eval request(\"a\") %>", "Deny webshell(Response[Script source]),Type:ASP backdoor"},
      {cut + kManager + " Symlink Back connect Bruteforce", ""},
      {std::string(65000, ' ') + kManager + " Symlink Back connect Bruteforce", "Deny webshell(Response),Type:Page"},
      {std::string(65000, ' ') + "<?php eval($_POST[1]); ?>", "Deny webshell(Response[Script source]),Type:Backdoor"},
      {std::string(66000, ' ') + "<?php eval($_POST[1]); ?>", ""},
  };
  for (const auto& [response, detail] : cases) {
    const std::string found = Run(response);
    EXPECT_TRUE(detail.empty() ? found.empty() : found.starts_with(detail))
        << response.size() << ": " << response.substr(0, 80) << "\n"
        << found;
  }
  EXPECT_EQ(statistics_.size(), 7U);
  EXPECT_EQ(statistics_.front(), "trojanhtml 192.0.2.7 -");
}

TEST_F(WebshellOutput, SparesOrdinaryPages) {
  const std::string cases[] = {
      // A hosting company's file manager and status page: all but a name and words of attack.
      "<form><input type=file><input name=\"dir\"></form> drwxr-xr-x rename chmod new file kernel uname php version "
      "free space run command",
      // An article about webshells, with the form for comments.
      "<h1>r57shell, b374k and phpspy</h1> back connect, bind port, cmd.exe, /etc/passwd, uname, safe mode, chmod, "
      "execute command<form><textarea name=comment></textarea></form>",
      "<?xml version=\"1.0\"?><html>webshell</html>",
      "<html><?php echo date('Y'); ?> forgotten</html>",
      "<script type=\"text/template\"><% if (user.eval) { %><b><%= user.name %></b><% } %></script>",
      "",
  };
  for (const std::string& response : cases) EXPECT_EQ(Run(response), "") << response;
  site_->base.trojan_webout = 0;
  EXPECT_EQ(Run(kManager + " Symlink Back connect Bruteforce"), "");
}

}  // namespace
}  // namespace qiv
