#include "arena_allocations.h"

#include <openssl/crypto.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace halvex_test {
namespace {

constexpr std::size_t arena_size = std::size_t{64} << 20;

// Hands out memory and takes none back. Before each block lies its size. The memory is mapped by
// the first request, which comes before any thread.
class Arena {
 public:
  void *allocate(std::size_t size) {
    if (memory_ == nullptr) {
      memory_ = static_cast<char *>(mmap(nullptr, arena_size, PROT_READ | PROT_WRITE,
                                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    }
    constexpr std::size_t step = alignof(std::max_align_t);
    const std::size_t taken = (size + step - 1) / step * step + step;
    const std::size_t start = used_.fetch_add(taken);
    if (start + taken > arena_size) {
      std::abort();
    }
    char *block = memory_ + start + step;
    std::memcpy(block - sizeof size, &size, sizeof size);
    return block;
  }

  static std::size_t size_of(const void *block) {
    std::size_t size = 0;
    std::memcpy(&size, static_cast<const char *>(block) - sizeof size, sizeof size);
    return size;
  }

  [[nodiscard]] Region region() const {
    const auto begin = reinterpret_cast<std::uintptr_t>(memory_);
    return {begin, begin + arena_size};
  }

 private:
  char *memory_ = nullptr;
  std::atomic<std::size_t> used_{0};
};

constinit Arena cxx;
constinit Arena libcrypto;

void *allocate_for_libcrypto(std::size_t size, const char * /*file*/, int /*line*/) {
  return libcrypto.allocate(size);
}

void release_for_libcrypto(void * /*block*/, const char * /*file*/, int /*line*/) {}

void *resize_for_libcrypto(void *block, std::size_t size, const char * /*file*/, int /*line*/) {
  void *larger = size == 0 ? nullptr : libcrypto.allocate(size);
  if (block != nullptr && larger != nullptr) {
    std::memcpy(larger, block, std::min(size, Arena::size_of(block)));
  }
  return larger;
}

}  // namespace

bool give_libcrypto_an_arena() {
  return CRYPTO_set_mem_functions(allocate_for_libcrypto, resize_for_libcrypto,
                                  release_for_libcrypto) == 1;
}

Region cxx_arena() { return cxx.region(); }
Region libcrypto_arena() { return libcrypto.region(); }

}  // namespace halvex_test

void *operator new(std::size_t size) { return halvex_test::cxx.allocate(size); }
void *operator new[](std::size_t size) { return halvex_test::cxx.allocate(size); }
void *operator new(std::size_t size, const std::nothrow_t & /*tag*/) noexcept {
  return halvex_test::cxx.allocate(size);
}
void *operator new[](std::size_t size, const std::nothrow_t & /*tag*/) noexcept {
  return halvex_test::cxx.allocate(size);
}
void operator delete(void * /*block*/) noexcept {}
void operator delete[](void * /*block*/) noexcept {}
void operator delete(void * /*block*/, std::size_t /*size*/) noexcept {}
void operator delete[](void * /*block*/, std::size_t /*size*/) noexcept {}
