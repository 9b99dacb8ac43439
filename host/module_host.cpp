#include "host/module_host.h"

#include <algorithm>
#include <bit>

#include "base/hex.h"
#include "host/module_file.h"
#include "host/registered_module.h"
#include "host/results.h"

namespace qiv::host {
namespace {

/// Stands for the server object: 26 methods, none of which the host offers.

class CNoServer {
 public:
#define QIV_HOST_SLOT(n) \
  virtual iis::HRESULT Slot##n() { return iis::kNotSupported; }
  QIV_HOST_SLOT(0)
  QIV_HOST_SLOT(1)
  QIV_HOST_SLOT(2)
  QIV_HOST_SLOT(3)
  QIV_HOST_SLOT(4)
  QIV_HOST_SLOT(5)
  QIV_HOST_SLOT(6)
  QIV_HOST_SLOT(7)
  QIV_HOST_SLOT(8)
  QIV_HOST_SLOT(9)
  QIV_HOST_SLOT(10)
  QIV_HOST_SLOT(11)
  QIV_HOST_SLOT(12)
  QIV_HOST_SLOT(13)
  QIV_HOST_SLOT(14)
  QIV_HOST_SLOT(15)
  QIV_HOST_SLOT(16)
  QIV_HOST_SLOT(17)
  QIV_HOST_SLOT(18)
  QIV_HOST_SLOT(19)
  QIV_HOST_SLOT(20)
  QIV_HOST_SLOT(21)
  QIV_HOST_SLOT(22)
  QIV_HOST_SLOT(23)
  QIV_HOST_SLOT(24)
  QIV_HOST_SLOT(25)
#undef QIV_HOST_SLOT

 protected:
  ~CNoServer() = default;
};
class CNoServerObject final : public CNoServer {};

bool ParsePriority(iis::PCWSTR alias, Priority* priority) {
  if (alias == nullptr) return false;
  const std::u16string_view text(alias);
  constexpr std::pair<std::u16string_view, Priority> kAliases[] = {{u"FIRST", Priority::kFirst},
                                                                   {u"HIGH", Priority::kHigh},
                                                                   {u"MEDIUM", Priority::kMedium},
                                                                   {u"LOW", Priority::kLow},
                                                                   {u"LAST", Priority::kLast}};
  for (const auto& [name, value] : kAliases) {
    if (name != text) continue;
    *priority = value;
    return true;
  }
  return false;
}

/// Handed to RegisterModule; fills the record. Valid only during the call.
class CRegistration final : public iis::IHttpModuleRegistrationInfo {
 public:
  explicit CRegistration(RegisteredModule& module) : module_(module) {}

  iis::PCWSTR GetName() const override { return module_.name.c_str(); }
  iis::HTTP_MODULE_ID GetId() const override { return module_.id; }

  iis::HRESULT SetRequestNotifications(iis::IHttpModuleFactory* factory, iis::DWORD main, iis::DWORD post) override {
    if (factory == nullptr) return kInvalidArgument;
    if (module_.factory != nullptr) return iis::kAlreadyExists;
    module_.factory = factory;
    module_.main = main;
    module_.post = post;
    return kOk;
  }

  iis::HRESULT SetGlobalNotifications(iis::CGlobalModule* global, iis::DWORD notifications) override {
    if (global == nullptr) return kInvalidArgument;
    if (module_.global != nullptr) return iis::kAlreadyExists;
    module_.global = global;
    module_.global_notifications = notifications;
    return kOk;
  }

  iis::HRESULT SetPriorityForRequestNotification(iis::DWORD notifications, iis::PCWSTR alias) override {
    Priority priority;
    if (!ParsePriority(alias, &priority)) return kInvalidArgument;
    for (std::size_t bit = 0; bit < 32; ++bit) {
      if ((notifications >> bit & 1u) != 0) module_.priorities[bit] = priority;
    }
    return kOk;
  }

  iis::HRESULT SetPriorityForGlobalNotification(iis::DWORD, iis::PCWSTR alias) override {
    return ParsePriority(alias, &module_.global_priority) ? kOk : kInvalidArgument;
  }

 private:
  RegisteredModule& module_;
};

}  // namespace

CModuleHost::CModuleHost(HostOptions options) : options_(std::move(options)), main_order_(32), post_order_(32) {}

CModuleHost::~CModuleHost() { Shutdown(); }

iis::HRESULT CModuleHost::Register(iis::RegisterModuleFunction entry, std::u16string name, iis::DWORD server_version) {
  auto module = std::make_unique<RegisteredModule>();
  module->name = std::move(name);
  module->id = reinterpret_cast<iis::HTTP_MODULE_ID>(next_id_++);
  module->position = modules_.size();
  module->priorities.fill(Priority::kMedium);
  CRegistration registration(*module);
  CNoServerObject server;
  const iis::HRESULT result =
      entry(server_version, &registration, reinterpret_cast<iis::IHttpServer*>(static_cast<CNoServer*>(&server)));
  if (iis::Failed(result)) return result;
  modules_.push_back(std::move(module));
  Sort();
  return result;
}

bool CModuleHost::Load(const std::string& path, std::string* error) {
  iis::RegisterModuleFunction entry = nullptr;
  void* file = LoadModuleFile(path, &entry, error);
  if (file == nullptr) return false;
  files_.push_back(file);
  const iis::HRESULT result = Register(entry);
  if (iis::Succeeded(result)) return true;
  *error = path + ": RegisterModule failed with 0x";
  for (int shift = 28; shift >= 0; shift -= 4) {
    error->push_back(kLowerHexDigits[static_cast<std::uint32_t>(result) >> shift & 15u]);
  }
  return false;
}

void CModuleHost::Sort() {
  std::vector<const RegisteredModule*> all;
  for (const auto& module : modules_) all.push_back(module.get());
  for (std::size_t bit = 0; bit < 32; ++bit) {
    std::vector<const RegisteredModule*> ordered = all;
    std::stable_sort(ordered.begin(), ordered.end(), [&](const RegisteredModule* a, const RegisteredModule* b) {
      return a->priorities[bit] > b->priorities[bit];
    });
    if (iis::DWORD{1} << bit == iis::RQ_SEND_RESPONSE) std::reverse(ordered.begin(), ordered.end());
    main_order_[bit].clear();
    post_order_[bit].clear();
    for (const RegisteredModule* module : ordered) {
      if (module->factory != nullptr && (module->main >> bit & 1u) != 0) main_order_[bit].push_back(module);
      if (module->factory != nullptr && (module->post >> bit & 1u) != 0) post_order_[bit].push_back(module);
    }
  }
  pre_begin_order_.clear();
  for (const RegisteredModule* module : all) {
    if (module->global != nullptr && (module->global_notifications & iis::GL_PRE_BEGIN_REQUEST) != 0) {
      pre_begin_order_.push_back(module);
    }
  }
  std::stable_sort(
      pre_begin_order_.begin(), pre_begin_order_.end(),
      [](const RegisteredModule* a, const RegisteredModule* b) { return a->global_priority > b->global_priority; });
}

void CModuleHost::Shutdown() {
  for (const auto& module : modules_) {
    if (module->factory != nullptr) module->factory->Terminate();
    if (module->global != nullptr) module->global->Terminate();
  }
  modules_.clear();
  Sort();
  for (void* file : files_) UnloadModuleFile(file);
  files_.clear();
}

const std::vector<const RegisteredModule*>& CModuleHost::Order(iis::DWORD bit, bool post) const {
  const auto number = static_cast<std::size_t>(std::countr_zero(bit));
  return post ? post_order_[number] : main_order_[number];
}

}  // namespace qiv::host
