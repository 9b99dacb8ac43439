#include "setup/registration.h"

namespace qiv::setup {
namespace {

const std::string kLoadedSection = "-section:system.webServer/globalModules";
const std::string kUsedSection = "-section:system.webServer/modules";
const std::string kCommit = "/commit:apphost";

/// "[name='...'...]", as appcmd names an entry of a list. Targets with a quote in their path are refused before.
std::string Entry(const std::string& attributes = "") {
  return "[name='" + std::string(kModuleName) + "'" + attributes + "]";
}

std::string FirstLine(const std::string& text) { return text.substr(0, text.find_first_of("\r\n")); }

}  // namespace

Fault CAppcmd::Change(std::vector<std::string> arguments) {
  const Command command{places_.appcmd, std::move(arguments)};
  const ProgramResult result = machine_.Run(command);
  if (result.Succeeded()) return {};
  const std::string said = FirstLine(result.output);
  return command.Text() + " failed" + (said.empty() ? "" : ": " + said);
}

Fault CAppcmd::Register(const Registration& wanted, std::vector<std::string>* warnings) {
  ServerConfig config;
  if (Fault fault = ReadServerConfig(machine_, places_, &config); !fault.empty()) return fault;
  const Registration& now = config.registration;
  Fault fault;
  const auto change = [&](const std::string& section, const std::string& what) {
    if (fault.empty()) fault = Change({"set", "config", section, what, kCommit});
  };
  // Requests are sent through it only while it is loaded.
  if (now.used && !wanted.used) change(kUsedSection, "/-" + Entry());
  if (now.loaded && !wanted.loaded) change(kLoadedSection, "/-" + Entry());
  if (wanted.loaded && !now.loaded) {
    change(kLoadedSection,
           "/+" + Entry(",image='" + wanted.loaded->image + "',preCondition='" + wanted.loaded->pre_condition + "'"));
  } else if (wanted.loaded) {
    if (now.loaded->image != wanted.loaded->image) {
      change(kLoadedSection, "/" + Entry() + ".image:" + wanted.loaded->image);
    }
    if (now.loaded->pre_condition != wanted.loaded->pre_condition) {
      change(kLoadedSection, "/" + Entry() + ".preCondition:" + wanted.loaded->pre_condition);
    }
  }
  if (!wanted.used) return fault;
  if (!now.used) {
    change(kUsedSection, "/+" + Entry(",preCondition='" + wanted.used->pre_condition + "'"));
  } else if (now.used->pre_condition != wanted.used->pre_condition) {
    change(kUsedSection, "/" + Entry() + ".preCondition:" + wanted.used->pre_condition);
  }
  if (fault.empty() && wanted.used->locked != (now.used && now.used->locked)) {
    fault = Lock(wanted.used->locked, warnings);
  }
  return fault;
}

/// Whether it holds is read from the file: a lock is no ordinary attribute, and not every appcmd sets it.
Fault CAppcmd::Lock(bool locked, std::vector<std::string>* warnings) {
  const Fault fault =
      Change({"set", "config", kUsedSection, "/" + Entry() + ".lockItem:" + (locked ? "true" : "false"), kCommit});
  if (machine_.IsRehearsal()) return {};
  ServerConfig config;
  if (Fault unread = ReadServerConfig(machine_, places_, &config); !unread.empty()) return unread;
  if (!config.registration.used || config.registration.used->locked == locked) return {};
  if (!locked) return fault.empty() ? "lockItem is still there" : fault;
  warnings->push_back("the entry could not be locked (" + fault +
                      "): a web.config that may change <modules> can take "
                      "the module out. To lock it by hand, write lockItem=\"true\" into <add name=\"" +
                      std::string(kModuleName) + "\"> below <modules> in " + places_.application_host);
  return {};
}

Fault CAppcmd::AddBackup(const std::string& name) { return Change({"add", "backup", name}); }

Fault CAppcmd::DeleteBackup(const std::string& name) { return Change({"delete", "backup", name}); }

std::string CAppcmd::RestoreLine(const std::string& name) const {
  return Command{places_.appcmd, {"restore", "backup", name}}.Text();
}

Fault CAppcmd::Recycle(const std::string& pool) {
  const ProgramResult state = machine_.Ask({places_.appcmd, {"list", "apppool", pool, "/text:state"}});
  // One that stands still takes the new file when it starts.
  if (state.Succeeded() && FirstLine(state.output) != "Started") return {};
  return Change({"recycle", "apppool", "/apppool.name:" + pool});
}

}  // namespace qiv::setup
