#include "port/module_path.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>

namespace qiv {
namespace {

// dladdr names the program itself by what it was called with, which may be a bare name found along PATH; the kernel
// knows better.
std::string ProgramFile() {
  char path[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", path, sizeof(path));
  return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

}  // namespace

const char kPathSeparator = '/';

std::string ModuleDirectory(const void* address) {
  Dl_info info;
  if (::dladdr(address, &info) == 0 || info.dli_fname == nullptr) return "./";
  std::string file = info.dli_fname;
  if (file.find('/') == std::string::npos) file = ProgramFile();
  const std::size_t slash = file.rfind('/');
  if (slash == std::string::npos) return "./";
  std::string directory = file.substr(0, slash + 1);
  if (directory.front() == '/') return directory;
  // Made absolute now: the process may change its directory later.
  char current[PATH_MAX];
  if (::getcwd(current, sizeof(current)) == nullptr) return directory;
  if (directory.starts_with("./")) directory.erase(0, 2);
  std::string absolute = current;
  if (!absolute.ends_with('/')) absolute += '/';
  return absolute + directory;
}

}  // namespace qiv
