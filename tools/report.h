// What qivctl has to say about a file: notes, findings and errors, each with its line.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace qiv {

// Exit codes of every command.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFinding = 1;   ///< something doubtful was found
inline constexpr int kExitError = 2;     ///< the command could not do its work
inline constexpr int kExitSignal = 128;  ///< and the signal's number: it was interrupted (130 for Ctrl-C)

/// A line of a file; the report's own where `file` is empty. Lines count from 1; 0: no line is meant.
struct Place {
  std::string file;
  std::size_t line = 0;
};

class CReport {
 public:
  explicit CReport(std::string file) : file_(std::move(file)) {}

  /// `line` counts from 1; 0 when the message concerns no line.
  void Finding(std::size_t line, std::string message) { Finding(Place{"", line}, std::move(message)); }
  void Finding(Place place, std::string message) {
    entries_.push_back({std::move(place), kExitFinding, std::move(message)});
  }
  /// What is in order, but may do more than its writer knows.
  void Note(Place place, const std::string& message) {
    entries_.push_back({std::move(place), kExitOk, "note: " + message});
  }
  void Error(std::size_t line, std::string message) { Error(Place{"", line}, std::move(message)); }
  void Error(Place place, std::string message) {
    entries_.push_back({std::move(place), kExitError, std::move(message)});
  }
  /// What another report says of its file.
  void Add(const CReport& other);

  bool HasError() const { return ExitCode() == kExitError; }
  /// Of the worst entry.
  int ExitCode() const;

  /// "qivctl: FILE:LINE: message" for each entry, in the order of lines; other files after the report's own.
  std::string Text(bool color = false) const;
  /// Whether Print colours messages from now on; it does not before.
  static void SetColor(bool wanted);
  /// Writes that to stderr; the exit code.
  int Print() const;

 private:
  struct Entry {
    Place place;
    int exit_code;
    std::string message;
  };
  std::string file_;
  std::vector<Entry> entries_;
};

/// Prints an error about a file, or whatever else a command was given, to stderr; kExitError.
int Fail(const std::string& file, std::string message, std::size_t line = 0);

}  // namespace qiv
