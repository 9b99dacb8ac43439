// Tells every change before it is made, with what came of it: the transcript. In a rehearsal nothing is made.
#pragma once

#include <functional>
#include <string>

#include "setup/machine.h"

namespace qiv::setup {

class CRecordingMachine : public IMachine {
 public:
  using Line = std::function<void(const std::string&)>;

  /// `machine` outlives this. `line` is called with each line, without its end.
  CRecordingMachine(IMachine& machine, bool rehearsal, Line line)
      : machine_(machine), rehearsal_(rehearsal), line_(std::move(line)) {}

  bool IsElevated() override { return machine_.IsElevated(); }
  PathKind Kind(const std::string& path) override { return machine_.Kind(path); }
  Fault Read(const std::string& path, std::string* content) override { return machine_.Read(path, content); }
  Fault List(const std::string& folder, std::vector<std::string>* files, std::vector<std::string>* folders) override {
    return machine_.List(folder, files, folders);
  }
  ProgramResult Ask(const Command& command) override;
  std::string Registry(const std::string& key, const std::string& value) override {
    return machine_.Registry(key, value);
  }
  WebAnswer Request(const WebPlace& place) override;
  void Wait(int milliseconds) override { machine_.Wait(milliseconds); }
  ProgramResult Run(const Command& command) override;
  Fault MakeFolder(const std::string& path) override;
  Fault Copy(const std::string& from, const std::string& to) override;
  Fault Move(const std::string& from, const std::string& to) override;
  Fault Remove(const std::string& path) override;
  Fault Write(const std::string& path, const std::string& content) override;
  Fault RemoveAtRestart(const std::string& path) override;
  bool IsRehearsal() const override { return rehearsal_; }

 private:
  template <typename Change>
  Fault Make(const std::string& what, Change change);
  ProgramResult Told(ProgramResult result) const;

  IMachine& machine_;
  const bool rehearsal_;
  const Line line_;
};

}  // namespace qiv::setup
