// A list of calls that both sides of the interface write: the host that clang compiles for the MSVC ABI and the module
// that g++ compiles. No library, no virtual method, one layout in both compilers.
#pragma once

namespace proof {

inline constexpr int kMaxArguments = 10;
inline constexpr int kMaxCalls = 1024;

struct Call {
  const char* name;
  int count;
  unsigned long long arguments[kMaxArguments];
};

struct Transcript {
  int count;
  Call calls[kMaxCalls];  ///< `count` may run past the end; calls beyond it are dropped
};

/// A number that belongs to one name (FNV-1a): what a recording method returns, so that a caller that reached another
/// method notices.
constexpr unsigned Identity(const char* name) {
  unsigned hash = 2166136261u;
  for (; *name != 0; ++name) hash = (hash ^ static_cast<unsigned char>(*name)) * 16777619u;
  return hash;
}

template <typename T>
inline constexpr bool kIsPointer = false;
template <typename T>
inline constexpr bool kIsPointer<T*> = true;

template <typename T>
unsigned long long AsNumber(T value) {
  if constexpr (kIsPointer<T>) {
    return reinterpret_cast<unsigned long long>(value);
  } else {
    return static_cast<unsigned long long>(value);
  }
}

/// The value that the recording method of this name returns.
template <typename T>
T IdentityAs(const char* name) {
  if constexpr (kIsPointer<T>) {
    return reinterpret_cast<T>(static_cast<unsigned long long>(Identity(name)) << 4);
  } else {
    return static_cast<T>(Identity(name));
  }
}

template <typename... A>
void Record(Transcript& transcript, const char* name, A... arguments) {
  const int index = transcript.count++;
  if (index >= kMaxCalls) return;
  Call& call = transcript.calls[index];
  call.name = name;
  call.count = sizeof...(A);
  int at = 0;
  ((call.arguments[at++] = AsNumber(arguments)), ...);
}

}  // namespace proof
