#include "checks/unlock_registry.h"

namespace qiv {
namespace {

class CNoRegistry final : public IUnlockRegistry {
 public:
  void RegisterForUnlocking(const RequestFacts&) override {}
};

CNoRegistry no_registry;
IUnlockRegistry* registry_in_use = &no_registry;

}  // namespace

IUnlockRegistry& UnlockRegistry() { return *registry_in_use; }

void SetUnlockRegistry(IUnlockRegistry* registry) { registry_in_use = registry ? registry : &no_registry; }

}  // namespace qiv
