#include "tests/setup/server_stand_in.h"

#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>

#include "port/module_path.h"

namespace qiv::setup {
namespace {

namespace fs = std::filesystem;

std::string BaseName(const std::string& path) { return path.substr(path.find_last_of(kPathSeparator) + 1); }

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) escaped += c == '&' ? "&amp;" : c == '"' ? "&quot;" : std::string(1, c);
  return escaped;
}

std::string AddTag(const CServerStandIn::Entry& entry) {
  std::string tag = "<add";
  for (const auto& [name, value] : entry) tag += " " + name + "=\"" + Escaped(value) + "\"";
  return tag + " />";
}

}  // namespace

CServerStandIn::CServerStandIn()
    : windows(directory_.Path("Windows")),
      source(directory_.Path("下载 archive")),
      target(Join(Join(directory_.Path("程序 文件"), "a & b"), "防火墙")),
      places(windows) {
  fs::create_directories(directory_.Root() / "Windows" / "System32" / "inetsrv" / "backup");
  Put(places.appcmd, "");
  WriteConfig();
  Unpack("1");
}

// Without the wait for the disk that goes with a replaced file.
void CServerStandIn::Put(const std::string& path, const std::string& content) {
  const fs::path place(std::u8string(path.begin(), path.end()));
  fs::create_directories(place.parent_path());
  std::ofstream file(place, std::ios::binary);
  file << content;
  ASSERT_TRUE(file.good()) << path;
}

void CServerStandIn::Unpack(const std::string& version, const std::string& machine) {
  std::string header = "MZ" + std::string(0x3A, '\0') + std::string("\x40\0\0\0", 4) + std::string("PE\0\0", 4);
  Put(Join(source, kModuleFile), header + machine + "version " + version);
  for (const std::string& file :
       {std::string(kToolFile), std::string(kSetupFile), std::string("uninstall.ps1"), std::string("README.md"),
        std::string("INSTALL.md"), Join(Join("rules", "settings"), "default.json")}) {
    Put(Join(source, file), file + " " + version);
  }
  // Each version has a file of its own.
  std::error_code ignored;
  const std::string former = Join(Join(source, "rules"), version == "1" ? "of_2.txt" : "of_1.txt");
  fs::remove(fs::path(std::u8string(former.begin(), former.end())), ignored);
  Put(Join(Join(source, "rules"), "of_" + version + ".txt"), version);
}

void CServerStandIn::WriteConfig() {
  Put(places.redirection, std::string("<?xml version=\"1.0\"?><configuration><configurationRedirection enabled=\"") +
                              (shared ? "true" : "false") + "\" path=\"\\\\nas\\iis\"/></configuration>");
  std::string text =
      "\xEF\xBB\xBF<?xml version=\"1.0\"?>\r\n<!-- <add name=\"QivIpsIIs\"/> -->\r\n<configuration>"
      "<system.applicationHost><applicationPools><add name=\"DefaultAppPool\" /><add name='旧 池' "
      "enable32BitAppOnWin64=\"true\" /><applicationPoolDefaults /></applicationPools>"
      "<sites><site name=\"b\" id=\"2\"><bindings><binding protocol=\"http\" "
      "bindingInformation=\"*:8080:\"/></bindings>"
      "</site><site name=\"a\" id=\"1\"><application path=\"/\"><virtualDirectory path=\"/\" physicalPath=\"" +
      site_folder +
      "\"/></application><bindings><binding protocol=\"net.tcp\" bindingInformation=\"808:*\"/>"
      "<binding protocol=\"http\" bindingInformation=\"*:80:www.example\"/></bindings></site></sites>"
      "</system.applicationHost><system.webServer><globalModules><add name=\"HttpCacheModule\" image=\"x\"/>" +
      (loaded ? AddTag(*loaded) : "") +
      "</globalModules></system.webServer><location path=\"\"><system.webServer><modules>" +
      (used ? AddTag(*used) : "") +
      "</modules></system.webServer></location><location path=\"b\"><system.webServer><modules><" +
      (leaves_out.empty() ? "unrelated" : leaves_out) + (leaves_out == "clear" ? "" : " name=\"QivIpsIIs\"") +
      "/></modules></system.webServer></location>"
      "</configuration>";
  Put(places.application_host, text);
}

bool CServerStandIn::Install() {
  InstallOptions options;
  options.source = source;
  options.target = target;
  options.stamp = "now";
  changes = 0;
  told.clear();
  return CInstaller(*this, places, [this](const std::string& line) { told += line + "\n"; }).Install(options);
}

bool CServerStandIn::Uninstall(bool with_settings) {
  changes = 0;
  told.clear();
  return CInstaller(*this, places, [this](const std::string& line) { told += line + "\n"; })
      .Uninstall({target, with_settings, "now"});
}

std::string CServerStandIn::Image() {
  if (!loaded) return {};
  return Content((*loaded)["image"]);
}

std::string CServerStandIn::Summary() {
  std::string text;
  const auto add = [&text](const std::string& word) { text += (text.empty() ? "" : " ") + word; };
  const std::string module = Content(Join(target, kModuleFile));
  if (!module.empty()) add("module " + module.substr(module.size() - 1));
  if (loaded && (*loaded)["image"] == Join(target, kModuleFile)) add("loaded");
  if (used) add("used");
  if (used && (*used)["lockItem"] == "true") add("locked");
  if (!held_.empty() && held_ == module) add("running");
  if (event_file == Join(target, kModuleFile)) add("events");
  const std::string config = Join(target, "config");
  if (!Content(Join(config, "_config.db")).empty()) add("on");
  const std::string debug = Join(target, "debug");
  const auto workers = [this](const std::string& path) { return rights_[path]["*S-1-5-32-568"]; };
  if (workers(Join(target, kModuleFile)) == "RX" && workers(config) == "(OI)(CI)RX" &&
      workers(Join(config, "_out.log")) == "(RD,AD,RA,REA,RC,S)" &&
      workers(debug) == "(RX,WD)(OI)(IO)(RD,AD,RA,REA,RC,S,D)" && rights_[debug]["*S-1-3-4"] == "(OI)(IO)(RC)" &&
      rights_[target]["inheritance"] == "r") {
    add("guarded");
  }
  if (!Content(Join(debug, "_log.log")).empty()) add("log");
  if (!Content(Join(Join(target, "rules"), "mine.txt")).empty()) add("mine");
  return text;
}

std::string CServerStandIn::Everything() {
  std::string text;
  for (const auto& entry : fs::recursive_directory_iterator(directory_.Root())) {
    const std::u8string name = entry.path().u8string();
    const std::string path(name.begin(), name.end());
    std::string line = path + (entry.is_directory() ? "/" : ": " + Content(path));
    if (const auto rights = rights_.find(path); rights != rights_.end()) {
      for (const auto& [who, what] : rights->second) line += " " + who + ":" + what;
    }
    text += line + "\n";
  }
  text += "event source: " + event_file + "\n";
  // The order of a folder's entries is no part of its state.
  std::map<std::string, int> lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = text.find('\n', begin);
    ++lines[text.substr(begin, end - begin)];
    begin = end + 1;
  }
  std::string sorted;
  for (const auto& [line, count] : lines) sorted += line + "\n";
  return sorted;
}

Fault CServerStandIn::Change(const std::function<Fault()>& change) {
  ++changes;
  if (failure == Failure::kThrown && changes == at_change) throw std::runtime_error("thrown");
  const bool fails =
      failure != Failure::kNone && (changes == at_change || (failure == Failure::kFromThereOn && changes > at_change));
  if (fails && failure != Failure::kReportedOnly) return "refused";
  Fault fault = change();
  return fails ? "reported only" : fault;
}

std::string CServerStandIn::Registry(const std::string& key, const std::string& value) {
  EXPECT_EQ(key + "\\" + value,
            "SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\QivIpsIIs\\EventMessageFile");
  return event_file;
}

WebAnswer CServerStandIn::Request(const WebPlace& place) {
  EXPECT_EQ(place.url, "http://localhost:80/");
  EXPECT_EQ(place.host, "www.example");
  if (used && (!loaded || Image().empty() || Image().ends_with(breaking))) return {500, ""};
  return {200, ""};
}

ProgramResult CServerStandIn::Ask(const Command& command) {
  EXPECT_EQ(command.program, places.appcmd);
  return {true, true, 0, command.arguments[2] == "旧 池" ? "Stopped\r\n" : "Started\r\n"};
}

ProgramResult CServerStandIn::Run(const Command& command) {
  const std::string name = BaseName(command.program);
  const Fault fault = Change([&]() -> Fault {
    if (name == "appcmd.exe") return Appcmd(command.arguments);
    if (name == "icacls.exe") return Icacls(command.arguments);
    if (name == "reg.exe") return Reg(command.arguments);
    if (Content(command.program).empty()) return "no such program";
    if (name == kSetupFile) return module_loads && !Content(command.arguments[1]).empty() ? "" : "it does not load";
    EXPECT_EQ(name, kToolFile);
    for (const char* const file : {"_config.db", "_sql.db"}) Put(Join(Join(target, "config"), file), "first");
    Put(Join(target, "settings.json"), "first");
    return {};
  });
  return {true, true, fault.empty() ? 0 : 5, fault};
}

Fault CServerStandIn::Appcmd(const std::vector<std::string>& arguments) {
  if (arguments[1] == "backup") {
    const std::string file = Join(places.backups, arguments[2]);
    if (arguments[0] == "add") Put(file, Content(places.application_host));
    return arguments[0] == "add" ? Fault() : CSystemMachine::Remove(file);
  }
  if (arguments[0] == "recycle") {
    EXPECT_EQ(arguments[2], "/apppool.name:DefaultAppPool");
    held_ = used && loaded ? Image() : "";
    return {};
  }
  std::optional<Entry>& entry = arguments[2] == "-section:system.webServer/globalModules" ? loaded : used;
  const std::string& what = arguments[3];
  const std::string key = "[name='QivIpsIIs'";
  const std::size_t at = what.find(key);
  if (at == std::string::npos || arguments[4] != "/commit:apphost") return "not understood";
  if (what[1] == '-') {
    if (!entry) return "no such entry";
    entry.reset();
  } else if (what[1] == '+') {
    if (entry) return "is there already";
    entry = Entry{{"name", "QivIpsIIs"}};
    for (std::size_t begin = what.find(','); begin != std::string::npos; begin = what.find(',', begin + 1)) {
      const std::size_t quote = what.find('\'', begin);
      (*entry)[what.substr(begin + 1, quote - begin - 2)] =
          what.substr(quote + 1, what.find('\'', quote + 1) - quote - 1);
    }
  } else {
    const std::size_t dot = at + key.size() + 2;
    const std::size_t colon = what.find(':', dot);
    if (!entry) return "no such entry";
    if (!locks && what.substr(dot, colon - dot) == "lockItem") return "unknown attribute";
    (*entry)[what.substr(dot, colon - dot)] = what.substr(colon + 1);
    if ((*entry)["lockItem"] != "true") entry->erase("lockItem");
  }
  WriteConfig();
  return {};
}

Fault CServerStandIn::Reg(const std::vector<std::string>& arguments) {
  if (arguments[0] == "delete") event_file.clear();
  if (arguments[0] == "add" && arguments[3] == "EventMessageFile") event_file = arguments[7];
  return {};
}

Fault CServerStandIn::Icacls(const std::vector<std::string>& arguments) {
  const std::string& path = arguments[0];
  if (arguments[1] == "/save" || arguments[1] == "/restore") {
    if (arguments[1] == "/save") Put(arguments[2], "rights");
    if (arguments[1] == "/save") saved_[arguments[2]] = rights_;
    if (Content(arguments[2]).empty()) return "no such file";
    // The paths in the file begin with the folder's name.
    if (arguments[1] == "/save") return {};
    EXPECT_EQ(path, target.substr(0, target.rfind(kPathSeparator) + 1));
    rights_ = saved_[arguments[2]];
    return {};
  }
  if (Kind(path) == PathKind::kMissing) return "no such file";
  bool replaces = false;
  for (const std::string& argument : arguments) {
    const std::size_t colon = argument.find(':');
    if (argument == "/inheritance:r") rights_[path]["inheritance"] = "r";
    if (argument == "/grant:r" || argument == "/grant") replaces = argument == "/grant:r";
    if (!argument.starts_with("*")) continue;
    std::string& right = rights_[path][argument.substr(0, colon)];
    right = (replaces ? "" : right) + argument.substr(colon + 1);
  }
  return {};
}

Fault CServerStandIn::MakeFolder(const std::string& path) {
  return Change([&] { return CSystemMachine::MakeFolder(path); });
}

Fault CServerStandIn::Copy(const std::string& from, const std::string& to) {
  return Change([&] { return CSystemMachine::Copy(from, to); });
}

Fault CServerStandIn::Move(const std::string& from, const std::string& to) {
  return Change([&] {
    Fault fault = CSystemMachine::Move(from, to);
    // Rights go with a file.
    auto rights = rights_.extract(from);
    if (fault.empty() && !rights.empty()) {
      rights.key() = to;
      rights_.insert(std::move(rights));
    }
    return fault;
  });
}

Fault CServerStandIn::Remove(const std::string& path) {
  return Change([&]() -> Fault {
    if (!held_.empty() && Content(path) == held_) return "in use";
    Fault fault = CSystemMachine::Remove(path);
    if (fault.empty()) rights_.erase(path);
    return fault;
  });
}

Fault CServerStandIn::Write(const std::string& path, const std::string& content) {
  return Change([&] {
    Put(path, content);
    return Fault();
  });
}

}  // namespace qiv::setup
