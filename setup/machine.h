// Everything that setting a server up asks of the machine or does to it goes through this interface, so that a stand-in
// can count the changes and refuse any one of them.
#pragma once

#include <string>
#include <vector>

#include "port/directory.h"
#include "port/process.h"
#include "port/web_request.h"

namespace qiv::setup {

/// Why something was not done, in words, UTF-8; empty when it was.
using Fault = std::string;

struct Command {
  std::string program;  ///< full path
  std::vector<std::string> arguments;

  /// As one would type it, for people to read.
  std::string Text() const;
};

/// "http://localhost:80/ (www.example)", for people to read.
std::string TextOf(const WebPlace& place);

/// Paths are UTF-8 with the machine's separator.
class IMachine {
 public:
  virtual ~IMachine() = default;

  // Questions; they change nothing.
  virtual bool IsElevated() = 0;
  virtual PathKind Kind(const std::string& path) = 0;
  virtual Fault Read(const std::string& path, std::string* content) = 0;
  /// Everything below a folder, relative to it, in order; links are files. `folders` may be null.
  virtual Fault List(const std::string& folder, std::vector<std::string>* files, std::vector<std::string>* folders) = 0;
  virtual ProgramResult Ask(const Command& command) = 0;
  /// As RegistryText of port/administration.h.
  virtual std::string Registry(const std::string& key, const std::string& value) = 0;
  virtual WebAnswer Request(const WebPlace& place) = 0;
  virtual void Wait(int milliseconds) = 0;

  // Changes.
  virtual ProgramResult Run(const Command& command) = 0;
  /// One folder, in a folder that is there.
  virtual Fault MakeFolder(const std::string& path) = 0;
  virtual Fault Copy(const std::string& from, const std::string& to) = 0;
  /// A file or folder, to a name that is free, on the same volume. A file that is in use as a program can be moved.
  virtual Fault Move(const std::string& from, const std::string& to) = 0;
  /// A file or an empty folder.
  virtual Fault Remove(const std::string& path) = 0;
  virtual Fault Write(const std::string& path, const std::string& content) = 0;
  virtual Fault RemoveAtRestart(const std::string& path) = 0;

  /// True when changes are only told, not made: what was "changed" must not be expected to be there.
  virtual bool IsRehearsal() const { return false; }
};

}  // namespace qiv::setup
