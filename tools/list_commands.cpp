// qivctl deny, auth, verify, forgive, lists.
#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/char_set.h"
#include "common/json.h"
#include "port/clock.h"
#include "tools/commands.h"
#include "tools/files.h"
#include "tools/list_store.h"
#include "tools/lock_obstacles.h"
#include "tools/log_text.h"
#include "tools/printable.h"
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

/// Seconds of "90s", "60m", "1h30m", "7d"; a number alone means minutes. Nothing for other texts, for 0 and for more
/// than a century.
std::optional<std::int64_t> ParsePeriod(std::string_view text) {
  constexpr std::string_view kUnits = "smhd";
  constexpr std::int64_t kSeconds[] = {1, 60, 3600, 86400};
  constexpr std::int64_t kLongest = std::int64_t{100} * 366 * 86400;
  std::int64_t total = 0;
  std::size_t unit_before = kUnits.size();
  while (!text.empty()) {
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    const bool alone = digits == text.size() && unit_before == kUnits.size();
    const std::size_t unit = alone ? kUnits.find('m') : kUnits.find(text.substr(digits, 1));
    // Each unit once, the longer ones first.
    if (digits == 0 || digits > 10 || (digits == text.size() && !alone) || unit >= unit_before) return std::nullopt;
    std::int64_t number = 0;
    for (const char digit : text.substr(0, digits)) number = number * 10 + (digit - '0');
    total += number * kSeconds[unit];
    unit_before = unit;
    text.remove_prefix(alone ? digits : digits + 1);
  }
  if (total == 0 || total > kLongest) return std::nullopt;
  return total;
}

/// What to do about a text that is no single address. `command` is the one it was given to.
std::string NoAddress(const std::string& text, std::string_view command) {
  if (!ParseIpRange(text)) return "is no IP address";
  std::string message = "is a range; " + std::string(command) + " takes single addresses";
  const bool is_deny = command == "deny";
  if (is_deny || command == "auth") {
    message += std::string(". For ranges write \"") + (is_deny ? "deny_ips" : "allow_ips") +
               "\" in website_lists of the settings, with \"status_iparea\" \"1\"";
  }
  return message;
}

/// The addresses; empty, with the message printed, when one is none. An IPv6 network is taken by its own address where
/// networks are listed.
std::vector<CIpAddress> ParseAddresses(const std::vector<std::string>& texts, std::string_view command) {
  const std::string network_end = "/" + std::to_string(kClientNetworkBits);
  std::vector<CIpAddress> addresses;
  for (const std::string& text : texts) {
    auto address = CIpAddress::Parse(text);
    if (!address && (command == "deny" || command == "forgive") && text.ends_with(network_end)) {
      address = CIpAddress::Parse(text.substr(0, text.size() - network_end.size()));
      if (address && address->IsIpv4()) address.reset();
    }
    if (!address) {
      Fail(text, NoAddress(text, command));
      return {};
    }
    addresses.push_back(*address);
  }
  return addresses;
}

/// On stderr.
void PrintWarnings(const std::string& subject, const std::vector<std::string>& warnings) {
  CReport report(subject);
  for (const std::string& warning : warnings) report.Finding(0, warning);
  report.Print();
}

/// What a change of the lists says once they are written.
struct Said {
  std::string text;
  int exit_code = kExitOk;
};

/// Changes the lists under their lock.
template <typename Change>
int ChangeLists(const std::string& directory, Change&& change) {
  CListStore store(directory);
  const std::unique_ptr<CFileLock> lock = store.Lock();
  if (!lock) return Fail(store.Path(), "is being changed by another program");
  if (!store.Load()) return Fail(store.Path(), store.LoadError());
  const std::int64_t now = UnixSeconds();
  store.Expire(now);
  Said said;
  change(store, now, &said);
  if (!store.Save()) return Fail(store.Path(), CannotWrite());
  WriteOutput(said.text);
  if (const std::size_t dropped = store.TakeDropped(); dropped != 0) {
    PrintWarnings(store.Path(),
                  {"the lists are full: " + std::to_string(dropped) + " entries that would have ended first are gone"});
  }
  return said.exit_code;
}

int Put(const ListOptions& options, ClientList list, std::string_view command) {
  const auto seconds = ParsePeriod(options.period);
  if (!seconds) return Fail(options.period, "is no period; write 90s, 60m, 1h30m or 7d");
  const std::vector<CIpAddress> addresses = ParseAddresses(options.addresses, command);
  if (addresses.empty()) return kExitError;
  const std::string directory = ResolveModuleDirectory(options.directory);
  if (directory.empty()) return Fail(options.directory, "is no module directory: it holds no config folder");
  std::vector<std::string> warnings;
  int exit_code = ChangeLists(directory, [&](CListStore& store, std::int64_t now, Said* said) {
    for (const CIpAddress& address : addresses) {
      store.Add({list, address, now, now + *seconds, "IIS", CleanField(CCharSet::ToLocal(options.reason))},
                CListStore::IfThere::kReplace);
    }
    for (const CIpAddress& address : addresses) {
      const std::string shown = ListedText(list, address);
      if (!store.Holds(list, address)) {
        said->exit_code = Fail(shown, "found no room: the lists are full of entries that end later");
        continue;
      }
      said->text += std::string(ClientListName(list)) + " " + shown + " until " + LocalTimeText(now + *seconds) + "\n";
      if (list == ClientList::kDeny && store.Holds(ClientList::kAuth, address)) {
        warnings.push_back(address.Text() + " is on the authlist, which goes before; forgive takes it off");
      }
    }
  });
  if (list == ClientList::kDeny && exit_code != kExitError) {
    const bool ipv6 = std::any_of(addresses.begin(), addresses.end(), [](const auto& a) { return !a.IsIpv4(); });
    for (std::string& obstacle : LockObstaclesOf(directory, ipv6)) warnings.push_back(std::move(obstacle));
  }
  PrintWarnings("deny", warnings);
  return warnings.empty() ? exit_code : std::max(exit_code, kExitFinding);
}

int Forgive(const ListOptions& options) {
  const std::vector<CIpAddress> addresses = ParseAddresses(options.addresses, "forgive");
  if (addresses.empty()) return kExitError;
  const std::string directory = ResolveModuleDirectory(options.directory);
  if (directory.empty()) return Fail(options.directory, "is no module directory: it holds no config folder");
  return ChangeLists(directory, [&](CListStore& store, std::int64_t, Said* said) {
    for (const CIpAddress& address : addresses) {
      std::string lists;
      for (const ClientList list : {ClientList::kDeny, ClientList::kAuth, ClientList::kCcCheck}) {
        if (!store.Remove(list, address)) continue;
        lists += (lists.empty() ? "" : ", ") + std::string(ClientListName(list)) + " " + ListedText(list, address);
      }
      if (lists.empty()) said->exit_code = kExitFinding;
      said->text += address.Text() + (lists.empty() ? " was on no list" : " taken off: " + lists) + "\n";
    }
  });
}

void PrintJson(const std::vector<ListEntry>& entries) {
  JsonArray array;
  for (const ListEntry& entry : entries) {
    auto object = std::make_unique<JsonObject>();
    object->SetText("list", std::string(ClientListName(entry.list)));
    object->SetText("client", ListedText(entry.list, entry.client));
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
    append(ListedText(entry.list, entry.client), 15);
    append("until " + LocalTimeText(entry.end), 0);
    text += PrintableUtf8(FieldToUtf8(entry.details.substr(0, entry.details.find('\t')))) + "\n";
  }
  WriteOutput(entries.empty() ? "no client is on a list\n" : text);
}

int Show(const ListOptions& options) {
  const std::string directory = ResolveModuleDirectory(options.directory);
  if (directory.empty()) return Fail(options.directory, "is no module directory: it holds no config folder");
  CListStore store(directory);
  if (!store.Load()) return Fail(store.Path(), store.LoadError());
  store.Expire(UnixSeconds());
  const std::vector<ListEntry> entries = store.Entries();
  options.json ? PrintJson(entries) : PrintTable(entries);
  const bool ipv6 = std::any_of(entries.begin(), entries.end(), [](const ListEntry& e) { return !e.client.IsIpv4(); });
  PrintWarnings("lists", LockObstaclesOf(directory, ipv6));
  return kExitOk;
}

CCommand& AddCommand(CCommand* program, const char* name, const char* what, const std::shared_ptr<ListOptions>& options,
                     bool with_addresses) {
  CCommand& command = program->AddCommand(name, what);
  if (with_addresses)
    command.AddOption("ip", &options->addresses, "IPv4 or IPv6 addresses; an IPv6 client is locked with its /64")
        .Required();
  command.AddOption("--config", &options->directory, "the module's directory").ValueIs(ValueKind::kFolder).Required();
  return command;
}

}  // namespace

void AddListCommands(CCommand* program) {
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
    CCommand& command = AddCommand(program, row.name, row.what, options, true);
    command.AddOption("--for", &options->period, "how long: 90s, 60m, 1h30m, 7d").ShowDefault();
    command.AddOption("--reason", &options->reason, "kept with the entry").ShowDefault();
    command.OnRun([options, list = row.list, name = row.name] { return Put(*options, list, name); });
  }
  const auto forgive_options = std::make_shared<ListOptions>();
  CCommand& forgive = AddCommand(program, "forgive", "Take clients off every list", forgive_options, true);
  forgive.OnRun([forgive_options] { return Forgive(*forgive_options); });

  const auto show_options = std::make_shared<ListOptions>();
  CCommand& show = AddCommand(program, "lists", "Show who is on the lists", show_options, false);
  show.AddFlag("--json", &show_options->json, "as JSON");
  show.OnRun([show_options] { return Show(*show_options); });
}

}  // namespace qiv
