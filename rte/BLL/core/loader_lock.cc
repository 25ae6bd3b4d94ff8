// dlopen() calls constructors with the loader's recursive mutex locked and expects them to return: an exception that
// passes it leaves the mutex to the thread that caught it, for good. Whatever looks up a symbol or loads a library in
// another thread (the name services behind a port mapper call do) would then hang without a word. There is no call that
// gives the mutex back, so it is looked for where glibc keeps it: in the loader's one global record, as the recursive
// mutex that this thread holds once. Only the public layout of a mutex is relied on; if there is not exactly one such
// place, nothing is touched.
#include "rte/BLL/core/loader_lock.h"

#include <cstddef>
#include <cstring>
#include <dlfcn.h>
#include <link.h>
#include <pthread.h>
#include <unistd.h>

namespace {

bool isHeldOnceByCaller(const std::byte* place)
{
  pthread_mutex_t mutex;
  std::memcpy(&mutex, place, sizeof mutex);
  return mutex.__data.__kind == PTHREAD_MUTEX_RECURSIVE_NP && mutex.__data.__owner == gettid() &&
         mutex.__data.__count == 1;
}

}  // namespace

bool releaseLoaderLock()
{
  void* const record = dlsym(RTLD_DEFAULT, "_rtld_global");
  Dl_info info;
  void* entry = nullptr;
  if (!record || !dladdr1(record, &info, &entry, RTLD_DL_SYMENT) || !entry || info.dli_saddr != record)
    return false;
  const size_t size = static_cast<const ElfW(Sym)*>(entry)->st_size;
  std::byte* const begin = static_cast<std::byte*>(record);
  std::byte* found = nullptr;
  for (size_t at = 0; at + sizeof(pthread_mutex_t) <= size; at += alignof(pthread_mutex_t)) {
    if (!isHeldOnceByCaller(begin + at))
      continue;
    if (found)
      return false;
    found = begin + at;
  }
  return found && pthread_mutex_unlock(reinterpret_cast<pthread_mutex_t*>(found)) == 0;
}
