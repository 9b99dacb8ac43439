// The machine that this program runs on.
#pragma once

#include "setup/machine.h"

namespace qiv::setup {

class CSystemMachine : public IMachine {
 public:
  bool IsElevated() override;
  PathKind Kind(const std::string& path) override;
  Fault Read(const std::string& path, std::string* content) override;
  Fault List(const std::string& folder, std::vector<std::string>* files, std::vector<std::string>* folders) override;
  ProgramResult Ask(const Command& command) override;
  std::string Registry(const std::string& key, const std::string& value) override;
  WebAnswer Request(const WebPlace& place) override;
  void Wait(int milliseconds) override;
  ProgramResult Run(const Command& command) override;
  Fault MakeFolder(const std::string& path) override;
  Fault Copy(const std::string& from, const std::string& to) override;
  Fault Move(const std::string& from, const std::string& to) override;
  Fault Remove(const std::string& path) override;
  Fault Write(const std::string& path, const std::string& content) override;
  Fault RemoveAtRestart(const std::string& path) override;
};

}  // namespace qiv::setup
