#include "counted_allocations.h"

#include <openssl/crypto.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "support/fault_plan.h"

namespace halvex_test {
namespace {

std::atomic<long> cxx_blocks{0};
std::atomic<long> libcrypto_blocks{0};

void *allocate_for_cxx(std::size_t size, std::size_t alignment) noexcept {
  if (inject_fault(Fault_source::cxx)) {
    return nullptr;
  }
  if (size == 0) {
    size = 1;
  }
  void *block = alignment > alignof(std::max_align_t)
                    ? std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment)
                    : std::malloc(size);
  if (block != nullptr) {
    cxx_blocks.fetch_add(1, std::memory_order_relaxed);
  }
  return block;
}

void *allocate_or_throw(std::size_t size, std::size_t alignment) {
  void *block = allocate_for_cxx(size, alignment);
  if (block == nullptr) {
    throw std::bad_alloc{};
  }
  return block;
}

void release_for_cxx(void *block) noexcept {
  if (block != nullptr) {
    cxx_blocks.fetch_sub(1, std::memory_order_relaxed);
    std::free(block);
  }
}

void *allocate_for_libcrypto(std::size_t size, const char * /*file*/, int /*line*/) {
  if (inject_fault(Fault_source::libcrypto)) {
    return nullptr;
  }
  void *block = std::malloc(size);
  if (block != nullptr) {
    libcrypto_blocks.fetch_add(1, std::memory_order_relaxed);
  }
  return block;
}

void release_for_libcrypto(void *block, const char * /*file*/, int /*line*/) {
  if (block != nullptr) {
    libcrypto_blocks.fetch_sub(1, std::memory_order_relaxed);
    std::free(block);
  }
}

void *resize_for_libcrypto(void *block, std::size_t size, const char *file, int line) {
  if (block == nullptr) {
    return allocate_for_libcrypto(size, file, line);
  }
  if (size == 0) {
    release_for_libcrypto(block, file, line);
    return nullptr;
  }
  return inject_fault(Fault_source::libcrypto) ? nullptr : std::realloc(block, size);
}

}  // namespace

bool count_libcrypto_allocations() {
  return CRYPTO_set_mem_functions(allocate_for_libcrypto, resize_for_libcrypto,
                                  release_for_libcrypto) == 1;
}

long live_cxx_blocks() { return cxx_blocks.load(std::memory_order_relaxed); }
long live_libcrypto_blocks() { return libcrypto_blocks.load(std::memory_order_relaxed); }

}  // namespace halvex_test

void *operator new(std::size_t size) { return halvex_test::allocate_or_throw(size, 0); }
void *operator new[](std::size_t size) { return halvex_test::allocate_or_throw(size, 0); }
void *operator new(std::size_t size, std::align_val_t alignment) {
  return halvex_test::allocate_or_throw(size, static_cast<std::size_t>(alignment));
}
void *operator new[](std::size_t size, std::align_val_t alignment) {
  return halvex_test::allocate_or_throw(size, static_cast<std::size_t>(alignment));
}
void *operator new(std::size_t size, const std::nothrow_t & /*tag*/) noexcept {
  return halvex_test::allocate_for_cxx(size, 0);
}
void *operator new[](std::size_t size, const std::nothrow_t & /*tag*/) noexcept {
  return halvex_test::allocate_for_cxx(size, 0);
}
void operator delete(void *block) noexcept { halvex_test::release_for_cxx(block); }
void operator delete[](void *block) noexcept { halvex_test::release_for_cxx(block); }
void operator delete(void *block, std::size_t /*size*/) noexcept {
  halvex_test::release_for_cxx(block);
}
void operator delete[](void *block, std::size_t /*size*/) noexcept {
  halvex_test::release_for_cxx(block);
}
void operator delete(void *block, std::align_val_t /*alignment*/) noexcept {
  halvex_test::release_for_cxx(block);
}
void operator delete[](void *block, std::align_val_t /*alignment*/) noexcept {
  halvex_test::release_for_cxx(block);
}
void operator delete(void *block, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
  halvex_test::release_for_cxx(block);
}
void operator delete[](void *block, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
  halvex_test::release_for_cxx(block);
}
void operator delete(void *block, const std::nothrow_t & /*tag*/) noexcept {
  halvex_test::release_for_cxx(block);
}
void operator delete[](void *block, const std::nothrow_t & /*tag*/) noexcept {
  halvex_test::release_for_cxx(block);
}
