#include "bench/installation.h"

#include <iostream>
#include <memory>
#include <system_error>

#include "common/json.h"
#include "module/module_state.h"
#include "port/clock.h"
#include "port/file.h"
#include "tools/installation.h"
#include "tools/report.h"
#include "tools/settings_document.h"

namespace qiv::bench {

CBenchInstallation::CBenchInstallation(const std::string& rules, const std::string& profile, std::string_view changes)
    : directory_(std::filesystem::temp_directory_path() /
                 ("qivbench-" + std::to_string(reinterpret_cast<std::uintptr_t>(this) ^
                                               static_cast<std::uintptr_t>(MonotonicMicroseconds())))) {
  InitOptions options;
  options.directory = directory_.string();
  options.rules = rules;
  options.profile = profile;
  ready_ = InitInstallation(options) == 0 && (changes.empty() || Change(changes));
}

CBenchInstallation::~CBenchInstallation() {
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

bool CBenchInstallation::Change(std::string_view changes) const {
  constexpr std::size_t kMost = 1 << 20;
  std::string text;
  const std::string file = (directory_ / "settings.json").string();
  const std::unique_ptr<IJsonValue> over = ParseJson(changes);
  if (!over || ReadWholeFile(file, kMost, &text) != ReadFileResult::kOk) return false;
  const std::unique_ptr<IJsonValue> settings = ParseJson(text);
  if (!settings) return false;
  for (const JsonObject::Member* const section : over->AsObject()->Members()) {
    const IJsonValue* const old = settings->AsObject()->Find(section->first);
    auto merged = std::make_unique<JsonObject>();
    for (const IJsonValue* const from : {old, static_cast<const IJsonValue*>(section->second.get())}) {
      if (from == nullptr || from->AsObject() == nullptr) continue;
      for (const JsonObject::Member* const member : from->AsObject()->Members()) {
        merged->Set(member->first, CloneJson(*member->second));
      }
    }
    static_cast<JsonObject&>(*settings).Set(section->first, std::move(merged));
  }
  CReport report(file);
  const SettingsFolder folder = FolderOfSettings(file);
  const auto document = CSettingsDocument::Parse(WriteJson(*settings), &report, &folder);
  const std::string packed = document ? PackSettings(*document, &report) : std::string();
  return !packed.empty() && ReplaceFile((directory_ / "config" / "_config.db").string(), packed);
}

bool CBenchInstallation::Use() const {
  if (ready_) {
    InitialiseModule(directory_.string(), false);
    State().config.RefreshTick();
  }
  if (ready_ && State().config.IsConfigValid()) return true;
  std::cerr << "qivbench: the configuration did not load\n";
  return false;
}

}  // namespace qiv::bench
