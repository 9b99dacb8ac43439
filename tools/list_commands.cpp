// qivctl deny, auth, verify, forgive, lists.
#include <CLI/CLI.hpp>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/char_set.h"
#include "common/json.h"
#include "common/text.h"
#include "port/clock.h"
#include "tools/commands.h"
#include "tools/files.h"
#include "tools/list_store.h"
#include "tools/log_text.h"
#include "tools/report.h"

namespace qiv {
namespace {

struct ListOptions {
  std::vector<std::string> addresses;
  std::string period = "60m";
  std::string reason = "By the operator";
  std::string directory;
  bool json = false;
};

/// Seconds of "90s", "60m", "12h", "7d"; nothing for other texts and for 0.
std::optional<std::int64_t> ParsePeriod(std::string_view text) {
  if (text.size() < 2) return std::nullopt;
  const std::string_view units = "smhd";
  constexpr std::int64_t kSeconds[] = {1, 60, 3600, 86400};
  const std::size_t unit = units.find(text.back());
  const std::int64_t number = DigitsToNumber(text.substr(0, text.size() - 1));
  if (unit == std::string_view::npos || number == 0) return std::nullopt;
  return number * kSeconds[unit];
}

int Fail(const std::string& file, const std::string& message) {
  CReport report(file);
  report.Error(0, message);
  return report.Print();
}

/// The addresses; empty, with the message printed, when one is none.
std::vector<CIpAddress> ParseAddresses(const std::vector<std::string>& texts) {
  std::vector<CIpAddress> addresses;
  for (const std::string& text : texts) {
    const auto address = CIpAddress::Parse(text);
    if (!address) {
      Fail(text, "is no IP address");
      return {};
    }
    addresses.push_back(*address);
  }
  return addresses;
}

/// Changes the lists under their lock. `change` gives the exit code; the lists are written unless it is an error.
template <typename Change>
int ChangeLists(const ListOptions& options, Change&& change) {
  const std::string directory = ResolveModuleDirectory(options.directory);
  if (directory.empty()) return Fail(options.directory, "is no module directory: it holds no config folder");
  CListStore store(directory);
  const std::unique_ptr<CFileLock> lock = store.Lock();
  if (!lock) return Fail(store.Path(), "is being changed by another program");
  if (!store.Load()) return Fail(store.Path(), "cannot be read");
  const int exit_code = change(store);
  if (exit_code == kExitError) return exit_code;
  return store.Save() ? exit_code : Fail(store.Path(), "cannot be written");
}

int Put(const ListOptions& options, ClientList list) {
  const auto seconds = ParsePeriod(options.period);
  if (!seconds) return Fail(options.period, "is no period; write 90s, 60m, 12h or 7d");
  const std::vector<CIpAddress> addresses = ParseAddresses(options.addresses);
  if (addresses.empty()) return kExitError;
  return ChangeLists(options, [&](CListStore& store) {
    const std::int64_t now = UnixSeconds();
    store.Expire(now);
    for (const CIpAddress& address : addresses) {
      const ListEntry entry{list, address, now, now + *seconds, "IIS", CleanField(CCharSet::ToLocal(options.reason))};
      if (!store.Add(entry, CListStore::IfThere::kReplace)) return Fail(store.Path(), "the lists are full");
      WriteOutput(std::string(ClientListName(list)) + " " + address.Text() + " until " + LocalTimeText(entry.end) +
                  "\n");
    }
    return kExitOk;
  });
}

int Forgive(const ListOptions& options) {
  const std::vector<CIpAddress> addresses = ParseAddresses(options.addresses);
  if (addresses.empty()) return kExitError;
  return ChangeLists(options, [&](CListStore& store) {
    int exit_code = kExitOk;
    store.Expire(UnixSeconds());
    for (const CIpAddress& address : addresses) {
      const bool denied = store.Remove(ClientList::kDeny, address);
      const bool verified = store.Remove(ClientList::kCcCheck, address);
      if (!denied && !verified) exit_code = kExitFinding;
      WriteOutput(address.Text() + (denied || verified ? " may pass\n" : " was on no list\n"));
    }
    return exit_code;
  });
}

void PrintJson(const std::vector<ListEntry>& entries) {
  JsonArray array;
  for (const ListEntry& entry : entries) {
    auto object = std::make_unique<JsonObject>();
    object->SetText("list", std::string(ClientListName(entry.list)));
    object->SetText("client", entry.client.Text());
    object->Set("start", std::make_unique<JsonNumber>(entry.start));
    object->Set("end", std::make_unique<JsonNumber>(entry.end));
    object->SetText("detail", FieldToUtf8(entry.details.substr(0, entry.details.find('\t'))));
    array.Append(std::move(object));
  }
  WriteOutput(WriteJson(array, 2) + "\n");
}

void PrintTable(const std::vector<ListEntry>& entries) {
  std::string text;
  const auto append = [&text](std::string cell, std::size_t width) {
    if (cell.size() < width) cell.resize(width, ' ');
    text += cell + " ";
  };
  for (const ListEntry& entry : entries) {
    append(std::string(ClientListName(entry.list)), 8);
    append(entry.client.Text(), 15);
    append("until " + LocalTimeText(entry.end), 0);
    text += FieldToUtf8(entry.details.substr(0, entry.details.find('\t'))) + "\n";
  }
  WriteOutput(entries.empty() ? "no client is on a list\n" : text);
}

int Show(const ListOptions& options) {
  const std::string directory = ResolveModuleDirectory(options.directory);
  if (directory.empty()) return Fail(options.directory, "is no module directory: it holds no config folder");
  CListStore store(directory);
  if (!store.Load()) return Fail(store.Path(), "cannot be read");
  store.Expire(UnixSeconds());
  options.json ? PrintJson(store.Entries()) : PrintTable(store.Entries());
  return kExitOk;
}

CLI::App* AddCommand(CLI::App* app, const char* name, const char* what, const std::shared_ptr<ListOptions>& options,
                     bool with_addresses) {
  CLI::App* const command = app->add_subcommand(name, what);
  if (with_addresses) command->add_option("ip", options->addresses, "IPv4 or IPv6 addresses")->required();
  command->add_option("--config", options->directory, "the module's directory")->required();
  return command;
}

}  // namespace

void AddListCommands(CLI::App* app, int* exit_code) {
  struct Row {
    const char* name;
    const char* what;
    ClientList list;
  };
  const Row rows[] = {{"deny", "Keep clients out for a while", ClientList::kDeny},
                      {"auth", "Let clients pass unchecked for a while", ClientList::kAuth},
                      {"verify", "Have clients pass a verification page for a while", ClientList::kCcCheck}};
  for (const Row& row : rows) {
    const auto options = std::make_shared<ListOptions>();
    CLI::App* const command = AddCommand(app, row.name, row.what, options, true);
    command->add_option("--for", options->period, "how long: 90s, 60m, 12h, 7d")->capture_default_str();
    command->add_option("--reason", options->reason, "kept with the entry")->capture_default_str();
    command->callback([options, exit_code, list = row.list] { *exit_code = Put(*options, list); });
  }
  const auto forgive_options = std::make_shared<ListOptions>();
  CLI::App* const forgive =
      AddCommand(app, "forgive", "Take clients off the deny and verification lists", forgive_options, true);
  forgive->callback([forgive_options, exit_code] { *exit_code = Forgive(*forgive_options); });

  const auto show_options = std::make_shared<ListOptions>();
  CLI::App* const show = AddCommand(app, "lists", "Show who is on the lists", show_options, false);
  show->add_flag("--json", show_options->json, "as JSON");
  show->callback([show_options, exit_code] { *exit_code = Show(*show_options); });
}

}  // namespace qiv
