#pragma once

#include <cstdint>
#include <memory>
#include <utility>

// NOLINTBEGIN(readability-identifier-naming): the pair keeps the names it is known by.
namespace lumo {

class smart_ptr_base {
 public:
  virtual ~smart_ptr_base() = 0;
};
inline smart_ptr_base::~smart_ptr_base() = default;

class admin_ptr_base {
 public:
  virtual ~admin_ptr_base() = 0;
};
inline admin_ptr_base::~admin_ptr_base() = default;

// The control block of a shared object: it counts the pointers and goes with the last of them.
// The count is plain, for one thread.
template <typename T>
class admin_ptr final : public admin_ptr_base {
 public:
  // Takes the object over and counts the pointer that is being made.
  explicit admin_ptr(T* object) noexcept : fObject(object) {}
  admin_ptr(const admin_ptr&) = delete;
  admin_ptr& operator=(const admin_ptr&) = delete;
  ~admin_ptr() override = default;

  virtual void AddRef() noexcept { ++fCount; }
  // At 0 deletes the object and then this block.
  virtual void Release() {
    if (--fCount != 0) return;
    delete fObject;
    delete this;
  }
  [[nodiscard]] virtual std::uint32_t GetCount() const noexcept { return fCount; }

 private:
  T* fObject;
  std::uint32_t fCount = 1;
};

// A pointer that shares its object with its copies.
template <typename T>
class smart_ptr final : public smart_ptr_base {
 public:
  smart_ptr() noexcept = default;
  // Takes the object over. Without memory for the block the object is deleted and std::bad_alloc
  // thrown.
  explicit smart_ptr(T* object) {
    std::unique_ptr<T> guard(object);
    fAdmin = new admin_ptr<T>(object);
    fObject = guard.release();
  }
  smart_ptr(const smart_ptr& other) noexcept
      : smart_ptr_base(other), fObject(other.fObject), fAdmin(other.fAdmin) {
    if (fAdmin != nullptr) fAdmin->AddRef();
  }
  smart_ptr& operator=(smart_ptr other) noexcept {
    std::swap(fObject, other.fObject);
    std::swap(fAdmin, other.fAdmin);
    return *this;
  }
  ~smart_ptr() override {
    if (fAdmin != nullptr) fAdmin->Release();
  }

  [[nodiscard]] T* Get() const noexcept { return fObject; }
  [[nodiscard]] T& operator*() const noexcept { return *fObject; }
  [[nodiscard]] T* operator->() const noexcept { return fObject; }
  // Pointers that share the object, 0 without one.
  [[nodiscard]] std::uint32_t UseCount() const noexcept {
    return fAdmin == nullptr ? 0 : fAdmin->GetCount();
  }

 private:
  T* fObject = nullptr;
  admin_ptr<T>* fAdmin = nullptr;
};

}  // namespace lumo
// NOLINTEND(readability-identifier-naming)
