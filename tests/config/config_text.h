// Builds texts of _config.db for tests.
#pragma once

#include <string>

#include "common/aes.h"

namespace qiv {

/// A settings part that is switched on, with `sections` (and any other tags) after its base.
inline std::string SettingsText(const std::string& sections, const std::string& base_json = "{\"hide\":1}") {
  return "<website_base><website_on_servers>1</website_on_servers>" + base_json + "</website_base>" + sections;
}

/// A whole file.
inline std::string FileText(const std::string& settings, const std::string& ip_lists = "") {
  return "<qivips_websiteiplibpart>" + ip_lists + "</qivips_websiteiplibpart>\r\n<qivips_websiteconfigpart>" +
         encrypt_text("", settings) + "</qivips_websiteconfigpart>\r\n";
}

}  // namespace qiv
