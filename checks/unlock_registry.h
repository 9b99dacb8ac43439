// Where the page with the password form announces its client.
#pragma once

#include "checks/request_facts.h"

namespace qiv {

/// Kept by the authorization password check: the clients that were shown the form and may answer it. Thread safe.
class IUnlockRegistry {
 public:
  virtual ~IUnlockRegistry() = default;
  /// Called for every page that carries the password form.
  virtual void RegisterForUnlocking(const RequestFacts& facts) = 0;
};

}  // namespace qiv
