#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

#include "port/administration.h"
#include "port/module_path.h"
#include "tests/setup/server_stand_in.h"

namespace qiv::setup {
namespace {

using Server = CServerStandIn;
using Failure = CServerStandIn::Failure;
using Step = std::function<void(Server&)>;

void Nothing(Server&) {}

/// What this archive installed, with a log, a rule of the administrator's own, and worker processes that run it.
void Installed(Server& server) {
  ASSERT_TRUE(server.Install()) << server.told;
  server.Put(Join(Join(server.target, "debug"), "_log.log"), "line");
  server.Put(Join(Join(server.target, "rules"), "mine.txt"), "mine");
}

/// As an earlier installer left it: no list of files, no lock.
void InstalledLongAgo(Server& server) {
  Installed(server);
  server.CSystemMachine::Remove(Join(server.target, kManifestFile));
  server.used->erase("lockItem");
  server.WriteConfig();
}

Step OldOne(const Step& state, const Step& change = Nothing) {
  return [=](Server& server) {
    state(server);
    change(server);
    server.WriteConfig();
    server.Unpack("2");
  };
}

constexpr char kWhole1[] = "module 1 loaded used locked running events on guarded";
constexpr char kWhole2[] = "module 2 loaded used locked running events on guarded log mine";

enum class Act { kInstall, kUninstall, kRemoveAll };

struct Scenario {
  const char* name;
  Step start;
  Act act;
  const char* end;   ///< Summary afterwards; null: it is refused and everything stays
  const char* told;  ///< must be among what is told
  bool each_step = false;
};

const Scenario kScenarios[] = {
    {"first", Nothing, Act::kInstall, kWhole1, "\"旧 池\"", true},
    {"again",
     [](Server& s) {
       Installed(s);
       // The same place, written in another way.
       for (std::string* const text : {&(*s.loaded)["image"], &s.event_file}) {
         std::transform(text->begin(), text->end(), text->begin(), [](char c) { return c == 'Q' ? 'q' : c; });
       }
       s.WriteConfig();
     },
     Act::kInstall, "module 1 used locked running on guarded log mine", "already"},
    {"repair: rights lost",
     [](Server& s) {
       Installed(s);
       s.ResetRights(Join(s.target, kModuleFile));
     },
     Act::kInstall, "module 1 loaded used locked running events on guarded log mine", "already"},
    {"update", OldOne(Installed), Act::kInstall, kWhole2, "the settings stay"},
    {"update of an old installation", OldOne(InstalledLongAgo), Act::kInstall, kWhole2, "restore backup QivIpsIIs-now",
     true},
    {"update from another folder",
     OldOne(Nothing,
            [](Server& s) {
              s.loaded = Server::Entry{{"name", "QivIpsIIs"}, {"image", "D:\\x.dll"}};
              s.used = Server::Entry{{"name", "QivIpsIIs"}};
            }),
     Act::kInstall, "module 2 loaded used locked running events on guarded", "cannot tell afterwards"},
    {"repair: loaded only", OldOne(Installed, [](Server& s) { s.used.reset(); }), Act::kInstall, kWhole2,
     "no request went", true},
    {"repair: used only", OldOne(Installed, [](Server& s) { s.loaded.reset(); }), Act::kInstall, kWhole2, "not loaded",
     true},
    {"repair: file lost", OldOne(Installed, [](Server& s) { s.CSystemMachine::Remove(Join(s.target, kModuleFile)); }),
     Act::kInstall, kWhole2, "cannot tell afterwards"},
    {"switched off",
     OldOne(Installed,
            [](Server& s) {
              const std::string file = Join(Join(s.target, "config"), "_config.db");
              s.CSystemMachine::Move(file, file + ".off");
            }),
     Act::kInstall, "module 2 loaded used locked running events guarded log mine", "switched off"},
    {"a site without", OldOne(Installed, [](Server& s) { s.leaves_out = "remove"; }), Act::kInstall,
     "module 2 loaded used running events on guarded log mine", "without the module, or"},
    {"a site with a list of its own", OldOne(Installed, [](Server& s) { s.leaves_out = "clear"; }), Act::kInstall,
     "module 2 loaded used running events on guarded log mine", "without the module, or"},
    {"no lock", [](Server& s) { s.locks = false; }, Act::kInstall, "module 1 loaded used running events on guarded",
     "by hand"},
    {"uninstall", Installed, Act::kUninstall, "on log mine", "what stays"},
    {"uninstall and remove settings", Installed, Act::kRemoveAll, "mine", "what stays", true},
    {"uninstall a half", OldOne(Installed, [](Server& s) { s.loaded.reset(); }), Act::kRemoveAll, "mine", "what stays"},

    {"uninstall from another program's folder",
     [](Server& s) {
       s.used = Server::Entry{{"name", "QivIpsIIs"}};
       s.WriteConfig();
       s.Put(Join(Join(s.target, "debug"), "_log.log"), "line");
     },
     Act::kRemoveAll, "log", "nothing is deleted"},

    {"no administrator", [](Server& s) { s.elevated = false; }, Act::kInstall, nullptr, "elevated"},
    {"no server", [](Server& s) { s.CSystemMachine::Remove(s.places.appcmd); }, Act::kInstall, nullptr,
     "not installed"},
    {"shared",
     [](Server& s) {
       s.shared = true;
       s.WriteConfig();
     },
     Act::kInstall, nullptr, "\\\\nas\\iis"},
    {"uninstall shared",
     [](Server& s) {
       Installed(s);
       s.shared = true;
       s.WriteConfig();
     },
     Act::kUninstall, nullptr, "shared"},
    {"broken configuration", [](Server& s) { s.Put(s.places.application_host, "<a><b></a>"); }, Act::kInstall, nullptr,
     "well-formed"},
    {"incomplete archive", [](Server& s) { s.CSystemMachine::Remove(Join(s.source, kToolFile)); }, Act::kInstall,
     nullptr, "qivctl.exe is missing"},
    {"32 bits", [](Server& s) { s.Unpack("1", "\x4C\x01"); }, Act::kInstall, nullptr, "64-bit"},
    {"does not load", [](Server& s) { s.module_loads = false; }, Act::kInstall, nullptr, "does not load"},
    {"breaks sites", [](Server& s) { s.breaking = "1"; }, Act::kInstall, nullptr, "status 500"},
    {"update breaks sites", OldOne(Installed, [](Server& s) { s.breaking = "2"; }), Act::kInstall, nullptr,
     "status 500"},
    {"served to visitors",
     [](Server& s) {
       s.site_folder = s.target.substr(0, s.target.rfind(kPathSeparator));
       s.WriteConfig();
     },
     Act::kInstall, nullptr, "served to visitors"},
    {"uninstall nothing", Nothing, Act::kUninstall, nullptr, "no installation"},
    {"uninstall elsewhere",
     [](Server& s) {
       s.loaded = Server::Entry{{"name", "QivIpsIIs"}, {"image", "D:\\x.dll"}};
       s.WriteConfig();
     },
     Act::kUninstall, nullptr, "D:\\x.dll"},
};

bool Perform(Server& server, Act act) {
  return act == Act::kInstall ? server.Install() : server.Uninstall(act == Act::kRemoveAll);
}

TEST(Setup, EndsAsExpectedOrChangesNothing) {
  for (const Scenario& scenario : kScenarios) {
    SCOPED_TRACE(scenario.name);
    Server server;
    scenario.start(server);
    const std::string before = server.Everything();
    EXPECT_EQ(Perform(server, scenario.act), scenario.end != nullptr) << server.told;
    EXPECT_NE(server.told.find(scenario.told), std::string::npos) << server.told;
    if (scenario.end != nullptr) {
      EXPECT_EQ(server.Summary(), scenario.end) << server.told;
    } else {
      EXPECT_EQ(server.Everything(), before) << server.told;
    }
  }
}

/// Each change of these fails: before it had an effect, or only in what it reports, or with all that follow, ways back
/// included.
TEST(Setup, TakesEverythingBackWhicheverStepFails) {
  int failures = 0;
  for (const Scenario& scenario : kScenarios) {
    if (!scenario.each_step) continue;
    for (const Failure failure : {Failure::kRefused, Failure::kReportedOnly, Failure::kFromThereOn, Failure::kThrown}) {
      // Enough to see that nothing is claimed then.
      if (failure >= Failure::kFromThereOn && &scenario != kScenarios) continue;
      for (int change = 1;; ++change) {
        Server server;
        scenario.start(server);
        const std::string before = server.Everything();
        server.failure = failure;
        server.at_change = change;
        const bool done = Perform(server, scenario.act);
        if (server.changes < change) break;
        ++failures;
        SCOPED_TRACE(std::string(scenario.name) + ", failure " + std::to_string(static_cast<int>(failure)) +
                     " at change " + std::to_string(change) + "\n" + server.told);
        const bool tells = server.told.find("not taken back") != std::string::npos;
        if (done) {
          // What may fail: locking, recycling a pool, deleting what is in use.
          const std::string summary = server.Summary();
          const bool is_in = summary.find("loaded used") != std::string::npos;
          const bool is_out = !server.used && !server.loaded;
          EXPECT_TRUE(scenario.act == Act::kInstall ? is_in : is_out) << summary;
        } else if (failure == Failure::kRefused || failure == Failure::kThrown || !tells) {
          EXPECT_EQ(server.Everything(), before);
          EXPECT_FALSE(tells && failure == Failure::kRefused);
        }
        if (testing::Test::HasFailure()) return;
      }
    }
  }
  EXPECT_GT(failures, 250);
}

/// The program itself, started as a script starts it: arguments, paths and output are whole.
TEST(Setup, ProgramTellsWhatItWouldDo) {
  if (!IsElevated()) GTEST_SKIP() << "only an administrator gets an answer";
  Server server;
  server.Put(server.places.icacls, "");
  const std::string before = server.Everything();
  const std::string transcript = Join(server.windows, "transcript.txt");
  const ProgramResult result =
      RunProgram(QIV_SETUP_PROGRAM,
                 {"install", "--what-if", "--windows", server.windows, "--source", server.source + "/", "--target",
                  server.target, "--url", "http://127.0.0.1:1/\"x y\"\\", "--transcript", transcript},
                 60'000);
  EXPECT_EQ(result.exit_code, 0) << result.output;
  for (const std::string& line :
       {"create folder " + server.target, std::string("request http://127.0.0.1:1/\"x y\"\\:"),
        "run " + server.places.appcmd +
            " set config -section:system.webServer/globalModules \"/+[name='QivIpsIIs',image='" +
            Join(server.target, kModuleFile)}) {
    EXPECT_NE(result.output.find("what if: " + line), std::string::npos) << line << "\n" << result.output;
  }
  EXPECT_EQ(server.Everything(), before);
}

TEST(Setup, TrialLoadsTheModuleAndNothingElse) {
  Server server;
  const std::string module = Join(server.windows, kModuleFile);
  ASSERT_EQ(server.CSystemMachine::Copy(QIV_MODULE_FILE, module), "");
  const std::string before = server.Everything();
  EXPECT_EQ(RunProgram(QIV_SETUP_PROGRAM, {"trial", module}, 60'000).exit_code, 0);
  EXPECT_EQ(server.Everything(), before);  // nothing in a log either
  const ProgramResult result = RunProgram(QIV_SETUP_PROGRAM, {"trial", Join(server.source, kModuleFile)}, 60'000);
  EXPECT_EQ(result.exit_code, 2);
  EXPECT_NE(result.output.find("cannot be loaded"), std::string::npos) << result.output;
}

}  // namespace
}  // namespace qiv::setup
