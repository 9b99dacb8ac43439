#include "setup/server_config.h"

#include <charconv>
#include <cstdint>
#include <limits>
#include <utility>

#include "port/module_path.h"
#include "setup/xml_reader.h"

namespace qiv::setup {
namespace {

constexpr std::string_view kPools = "/configuration/system.applicationHost/applicationPools/";
constexpr std::string_view kSite = "/configuration/system.applicationHost/sites/site";
constexpr std::string_view kServer = "/configuration/system.webServer/";
constexpr std::string_view kServerLocation = "/configuration/location/system.webServer/";

constexpr std::uint64_t kAfterAllSites = std::uint64_t{1} << 32;  // sites are numbered in 32 bits

bool IsTrue(std::string_view text) { return text == "true" || text == "True"; }

/// "*:80:" or "192.0.2.1:80:www.example" or "[::1]:80:" as a place on this machine, whatever the name means elsewhere;
/// no URL when it is no such text, or the name stands for many.
WebPlace PlaceOfBinding(const std::string& protocol, std::string_view binding) {
  const std::size_t last = binding.rfind(':');
  const std::size_t port = last == std::string_view::npos || last == 0 ? last : binding.rfind(':', last - 1);
  if (port == std::string_view::npos) return {};
  std::string address(binding.substr(0, port));
  if (address == "*" || address.empty()) address = "localhost";
  const std::string number = ":" + std::string(binding.substr(port + 1, last - port - 1));
  std::string host(binding.substr(last + 1));
  if (host.find('*') != std::string::npos) return {};
  const bool is_usual = number == (protocol == "http" ? ":80" : ":443");
  if (!host.empty() && !is_usual) host += number;
  return {protocol + "://" + address + number + "/", host};
}

class CConfigReading {
 public:
  explicit CConfigReading(ServerConfig* config) : config_(config) {}

  void Take(const CXmlReader& xml) {
    const std::string& path = xml.Path();
    if (path.starts_with(kPools)) {
      TakePool(xml, std::string_view(path).substr(kPools.size()));
    } else if (path.starts_with(kSite)) {
      TakeSite(xml, std::string_view(path).substr(kSite.size()));
    } else if (path.starts_with(kServer)) {
      TakeModule(xml, std::string_view(path).substr(kServer.size()));
    } else if (path.starts_with(kServerLocation)) {
      // Of all locations that with the empty path is the server itself.
      const std::string location = xml.AttributeAround("location", "path");
      const std::string_view element = std::string_view(path).substr(kServerLocation.size());
      if (location.empty() || location == ".") {
        TakeModule(xml, element);
      } else if (element == "modules/clear" || (element == "modules/remove" && xml.Attribute("name") == kModuleName)) {
        config_->left_out.push_back(location);
      }
    }
  }

  void Finish() {
    for (std::size_t i = 0; i < config_->pools.size(); ++i) {
      if (bits_[i].empty()) config_->pools[i].is_32_bit = default_32_bit_;
    }
  }

 private:
  void TakePool(const CXmlReader& xml, std::string_view element) {
    const std::string bits = xml.Attribute("enable32BitAppOnWin64");
    if (element == "add") {
      config_->pools.push_back({xml.Attribute("name"), IsTrue(bits)});
      bits_.push_back(bits);
    } else if (element == "applicationPoolDefaults") {
      default_32_bit_ = IsTrue(bits);
    }
  }

  void TakeSite(const CXmlReader& xml, std::string_view inside) {
    if (inside.ends_with("/virtualDirectory")) config_->site_folders.push_back(xml.Attribute("physicalPath"));
    if (inside != "/bindings/binding") return;
    const std::string protocol = xml.Attribute("protocol");
    if (protocol != "http" && protocol != "https") return;
    const std::string id = xml.AttributeAround("site", "id");
    std::uint64_t number = 0;
    if (std::from_chars(id.data(), id.data() + id.size(), number).ec != std::errc()) return;
    // A certificate may be chosen by the name, which a request to an address does not tell in time.
    if (protocol == "https") number += kAfterAllSites;
    if (number >= first_site_) return;
    WebPlace place = PlaceOfBinding(protocol, xml.Attribute("bindingInformation"));
    if (place.url.empty()) return;
    config_->first_place = std::move(place);
    first_site_ = number;
  }

  void TakeModule(const CXmlReader& xml, std::string_view element) {
    if (xml.Attribute("name") != kModuleName) return;
    Registration& registration = config_->registration;
    if (element == "globalModules/add") {
      registration.loaded = {xml.Attribute("image"), xml.Attribute("preCondition")};
    } else if (element == "modules/add") {
      registration.used = {xml.Attribute("preCondition"), IsTrue(xml.Attribute("lockItem"))};
    }
  }

  ServerConfig* const config_;
  std::vector<std::string> bits_;  ///< of each pool, as written
  bool default_32_bit_ = false;
  std::uint64_t first_site_ = std::numeric_limits<std::uint64_t>::max();
};

}  // namespace

std::string Join(const std::string& folder, std::string_view name) {
  std::string path = folder;
  if (!path.empty() && path.back() != kPathSeparator) path += kPathSeparator;
  return path.append(name);
}

ServerPlaces::ServerPlaces(const std::string& windows_folder) : windows(windows_folder) {
  const std::string system = Join(windows, "System32");
  const std::string inetsrv = Join(system, "inetsrv");
  appcmd = Join(inetsrv, "appcmd.exe");
  icacls = Join(system, "icacls.exe");
  reg = Join(system, "reg.exe");
  application_host = Join(Join(inetsrv, "config"), "applicationHost.config");
  redirection = Join(Join(inetsrv, "config"), "redirection.config");
  backups = Join(inetsrv, "backup");
}

Fault ReadServerConfig(IMachine& machine, const ServerPlaces& places, ServerConfig* config) {
  std::string text;
  if (machine.Kind(places.redirection) != PathKind::kMissing) {
    if (const Fault fault = machine.Read(places.redirection, &text); !fault.empty()) {
      return places.redirection + ": " + fault;
    }
    CXmlReader xml(text);
    while (xml.NextElement()) {
      if (xml.Path() != "/configuration/configurationRedirection" || !IsTrue(xml.Attribute("enabled"))) continue;
      return "this server takes its configuration from " + xml.Attribute("path") +
             " (shared configuration). A change there would reach every server that shares it, also those that do not "
             "have the module's file, and stop their sites. Install the files on each of them, then register the "
             "module once by hand; INSTALL.md says how";
    }
    if (xml.IsBroken()) return places.redirection + " is no well-formed XML";
  }
  if (const Fault fault = machine.Read(places.application_host, &text); !fault.empty()) {
    return places.application_host + ": " + fault;
  }
  *config = {};
  CConfigReading reading(config);
  CXmlReader xml(text);
  while (xml.NextElement()) reading.Take(xml);
  if (xml.IsBroken()) return places.application_host + " is no well-formed XML";
  reading.Finish();
  return {};
}

}  // namespace qiv::setup
