#include "port/module_path.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <climits>

namespace qiv {
namespace {

// The dynamic loader names the program itself by what it was called with, which may be a bare name found along PATH or
// relative to a directory left since; the kernel knows better.
std::string ProgramFile() {
  char path[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", path, sizeof(path));
  return length > 0 ? std::string(path, static_cast<std::size_t>(length)) : std::string();
}

}  // namespace

const char kPathSeparator = '/';

std::string ModuleDirectory(const void* address) {
  Dl_info info;
  void* extra = nullptr;
  if (::dladdr1(address, &info, &extra, RTLD_DL_LINKMAP) == 0 || info.dli_fname == nullptr) return "./";
  const auto* map = static_cast<const link_map*>(extra);
  const bool is_program = map == nullptr || map->l_name == nullptr || *map->l_name == '\0';
  const std::string file = is_program ? ProgramFile() : info.dli_fname;
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
