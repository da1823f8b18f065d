// A growable stack of plain records on the tagged allocator, for the
// walkers that must not recurse as deep as their input nests (the
// expression parser, the tree walkers, the statement compiler): their depth
// is bounded by memory, not by the machine stack.  The first INLINE records
// live in the object itself, so shallow uses allocate nothing.
#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>

// Part of support/support.h, which includes it after the allocator's
// declarations; include that header, not this one.

namespace vexor {

template <class T, std::size_t INLINE = 32>
class WorkStack {
  static_assert(std::is_trivially_copyable_v<T>, "records are moved with memcpy");

 public:
  WorkStack() = default;
  WorkStack(const WorkStack&) = delete;
  WorkStack& operator=(const WorkStack&) = delete;
  ~WorkStack() {
    if (items_ != local_) memfree(items_);
  }

  bool empty() const { return size_ == 0; }
  std::size_t size() const { return size_; }
  T& top() { return items_[size_ - 1]; }
  T& operator[](std::size_t i) { return items_[i]; }
  void pop() { --size_; }
  void clear() { size_ = 0; }

  // Pushes a copy of t; the stack doubles when full.  Returns false (and
  // pushes nothing) when the allocator cannot give the room.
  bool push(const T& t) {
    if (size_ == capacity_ && !grow()) return false;
    items_[size_++] = t;
    return true;
  }

 private:
  bool grow() {
    const std::size_t cap = capacity_ * 2;
    auto* bigger = static_cast<T*>(memalloc(cap * sizeof(T), "stack"));
    if (!bigger) return false;
    std::memcpy(static_cast<void*>(bigger), items_, size_ * sizeof(T));
    if (items_ != local_) memfree(items_);
    items_ = bigger;
    capacity_ = cap;
    return true;
  }

  T local_[INLINE];
  T* items_ = local_;
  std::size_t size_ = 0;
  std::size_t capacity_ = INLINE;
};

}  // namespace vexor
