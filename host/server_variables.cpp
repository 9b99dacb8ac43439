#include "host/server_variables.h"

#include "host/ascii.h"
#include "host/host_context.h"
#include "iis/header_names.h"

namespace qiv::host {
namespace {

using Compute = void (*)(CHostContext& context, VariableValue* value);

void Widen(std::u16string_view text, VariableValue* value) {
  value->is_wide = true;
  value->wide = text;
}

const iis::HTTP_REQUEST& Raw(CHostContext& context) { return *context.request().GetRawHttpRequest(); }

void Header(CHostContext& context, int id, VariableValue* value) {
  const iis::HTTP_KNOWN_HEADER& header = Raw(context).Headers.KnownHeaders[id];
  if (header.pRawValue != nullptr) value->bytes.assign(header.pRawValue, header.RawValueLength);
}

void Url(CHostContext& context, VariableValue* value) {
  const iis::HTTP_COOKED_URL& url = Raw(context).CookedUrl;
  Widen({url.pAbsPath, url.AbsPathLength / sizeof(iis::WCHAR)}, value);
}

void RawUrl(CHostContext& context, VariableValue* value) {
  const iis::HTTP_REQUEST& raw = Raw(context);
  if (raw.pRawUrl != nullptr) value->bytes.assign(raw.pRawUrl, raw.RawUrlLength);
}

void Query(CHostContext& context, VariableValue* value) {
  const iis::HTTP_COOKED_URL& url = Raw(context).CookedUrl;
  for (std::size_t i = 1; i < url.QueryStringLength / sizeof(iis::WCHAR); ++i) {
    value->bytes.push_back(static_cast<char>(url.pQueryString[i]));
  }
}

/// The cooked host without its port.
void ServerName(CHostContext& context, VariableValue* value) {
  const iis::HTTP_COOKED_URL& url = Raw(context).CookedUrl;
  std::u16string_view host(url.pHost, url.HostLength / sizeof(iis::WCHAR));
  Widen(host.substr(0, host.rfind(u':')), value);
}

void Physical(CHostContext& context, VariableValue* value) {
  iis::DWORD length = 0;
  const iis::PCWSTR path = context.GetPhysicalPath(&length);
  if (path != nullptr) Widen({path, length}, value);
}

void Protocol(CHostContext& context, VariableValue* value) {
  const iis::HTTP_VERSION& version = Raw(context).Version;
  value->bytes = "HTTP/" + std::to_string(version.MajorVersion) + "." + std::to_string(version.MinorVersion);
}

const HostAddress& Address(iis::PSOCKADDR address) { return *reinterpret_cast<const HostAddress*>(address); }

bool Secure(CHostContext& context) { return Raw(context).pSslInfo != nullptr; }

/// Every header in the order of their numbers, then the unknown ones.
template <class Visit>
void ForEachHeader(CHostContext& context, Visit visit) {
  const iis::HTTP_REQUEST_HEADERS& headers = Raw(context).Headers;
  for (int id = 0; id < iis::HttpHeaderRequestMaximum; ++id) {
    const iis::HTTP_KNOWN_HEADER& header = headers.KnownHeaders[id];
    if (header.pRawValue != nullptr) {
      visit(iis::RequestHeaderName(id), std::string_view(header.pRawValue, header.RawValueLength));
    }
  }
  for (std::size_t i = 0; i < headers.UnknownHeaderCount; ++i) {
    const iis::HTTP_UNKNOWN_HEADER& header = headers.pUnknownHeaders[i];
    const char* text = header.pRawValue == nullptr ? "" : header.pRawValue;
    visit(std::string_view(header.pName, header.NameLength), std::string_view(text, header.RawValueLength));
  }
}

/// "User-Agent" -> "USER_AGENT".
std::string VariableName(std::string_view header) {
  std::string name;
  for (const char c : header) {
    const bool lower = c >= 'a' && c <= 'z';
    name.push_back(c == '-' ? '_' : lower ? static_cast<char>(c - 32) : c);
  }
  return name;
}

struct Variable {
  std::string_view name;
  Compute compute;  ///< null: known, but never has a value here
};

const Variable kVariables[] = {
    {"ALL_HTTP",
     [](CHostContext& c, VariableValue* v) {
       ForEachHeader(c, [&](std::string_view name, std::string_view text) {
         v->bytes.append("HTTP_").append(VariableName(name)).append(":").append(text).append("\n");
       });
     }},
    {"ALL_RAW",
     [](CHostContext& c, VariableValue* v) {
       ForEachHeader(c, [&](std::string_view name, std::string_view text) {
         v->bytes.append(name).append(": ").append(text).append("\r\n");
       });
     }},
    {"APPL_MD_PATH", [](CHostContext& c,
                        VariableValue* v) { v->bytes = "/LM/W3SVC/" + std::to_string(c.options().site_id) + "/ROOT"; }},
    {"APPL_PHYSICAL_PATH", [](CHostContext& c, VariableValue* v) { v->bytes = c.options().site_root; }},
    {"APP_POOL_ID", [](CHostContext& c, VariableValue* v) { v->bytes = c.options().application_pool; }},
    {"AUTH_PASSWORD", nullptr},
    {"AUTH_TYPE", nullptr},
    {"AUTH_USER", nullptr},
    {"CACHE_URL",
     [](CHostContext& c, VariableValue* v) {
       const iis::HTTP_COOKED_URL& url = Raw(c).CookedUrl;
       Widen({url.pFullUrl, url.FullUrlLength / sizeof(iis::WCHAR)}, v);
     }},
    {"CERT_COOKIE", nullptr},
    {"CERT_FLAGS", nullptr},
    {"CERT_ISSUER", nullptr},
    {"CERT_SERIALNUMBER", nullptr},
    {"CERT_SUBJECT", nullptr},
    {"CONTENT_LENGTH",
     [](CHostContext& c, VariableValue* v) {
       Header(c, iis::HttpHeaderContentLength, v);
       if (v->bytes.empty()) v->bytes = "0";
     }},
    {"CONTENT_TYPE", [](CHostContext& c, VariableValue* v) { Header(c, iis::HttpHeaderContentType, v); }},
    {"GATEWAY_INTERFACE", [](CHostContext&, VariableValue* v) { v->bytes = "CGI/1.1"; }},
    {"HTTPS",
     [](CHostContext& c, VariableValue* v) {
       v->bytes = Secure(c) ? "ON" : "OFF";
       if (!c.options().https_lower_case) return;
       for (char& letter : v->bytes) letter = LowerByte(letter);
     }},
    {"HTTPS_KEYSIZE", nullptr},
    {"HTTPS_SECRETKEYSIZE", nullptr},
    {"HTTPS_SERVER_ISSUER", nullptr},
    {"HTTPS_SERVER_SUBJECT", nullptr},
    {"HTTP_METHOD", [](CHostContext& c, VariableValue* v) { v->bytes = c.request().GetHttpMethod(); }},
    {"HTTP_URL", RawUrl},
    {"HTTP_VERSION", Protocol},
    {"INSTANCE_ID", [](CHostContext& c, VariableValue* v) { v->bytes = std::to_string(c.options().site_id); }},
    {"INSTANCE_META_PATH",
     [](CHostContext& c, VariableValue* v) { v->bytes = "/LM/W3SVC/" + std::to_string(c.options().site_id); }},
    {"LOCAL_ADDR",
     [](CHostContext& c, VariableValue* v) { v->bytes = AddressText(Address(c.request().GetLocalAddress())); }},
    {"LOGON_USER", nullptr},
    {"PATH_INFO", Url},
    {"PATH_TRANSLATED", Physical},
    {"QUERY_STRING", Query},
    {"REMOTE_ADDR",
     [](CHostContext& c, VariableValue* v) { v->bytes = AddressText(Address(c.request().GetRemoteAddress())); }},
    {"REMOTE_HOST",
     [](CHostContext& c, VariableValue* v) { v->bytes = AddressText(Address(c.request().GetRemoteAddress())); }},
    {"REMOTE_PORT",
     [](CHostContext& c, VariableValue* v) {
       v->bytes = std::to_string(AddressPort(Address(c.request().GetRemoteAddress())));
     }},
    {"REMOTE_USER", nullptr},
    {"REQUEST_FLAGS", [](CHostContext&, VariableValue* v) { v->bytes = "0"; }},
    {"REQUEST_METHOD", [](CHostContext& c, VariableValue* v) { v->bytes = c.request().GetHttpMethod(); }},
    {"SCRIPT_NAME", Url},
    {"SCRIPT_TRANSLATED", Physical},
    {"SERVER_NAME", ServerName},
    {"SERVER_PORT",
     [](CHostContext& c, VariableValue* v) {
       v->bytes = std::to_string(AddressPort(Address(c.request().GetLocalAddress())));
     }},
    {"SERVER_PORT_SECURE", [](CHostContext& c, VariableValue* v) { v->bytes = Secure(c) ? "1" : "0"; }},
    {"SERVER_PROTOCOL", Protocol},
    {"SERVER_SOFTWARE", [](CHostContext& c, VariableValue* v) { v->bytes = c.options().server_name; }},
    {"UNENCODED_URL", RawUrl},
    {"UNMAPPED_REMOTE_USER", nullptr},
    {"URL", Url},
};

}  // namespace

bool FindServerVariable(CHostContext& context, std::string_view name, VariableValue* value) {
  for (const Variable& variable : kVariables) {
    if (variable.name != name) continue;
    if (variable.compute != nullptr) variable.compute(context, value);
    return true;
  }
  if (name.substr(0, 5) != "HTTP_" || name.size() == 5) return false;
  bool found = false;
  ForEachHeader(context, [&](std::string_view header, std::string_view text) {
    if (found || header.size() != name.size() - 5 || VariableName(header) != name.substr(5)) return;
    value->bytes = text;
    found = true;
  });
  return found || context.options().missing_header_variable_is_empty;
}

}  // namespace qiv::host
