#pragma once

// GCC 12 cannot see that a block it watched being deleted is never the one
// still in use (the count was 1) and warns wherever holders are inlined.
#if defined(__GNUC__) && !defined(__clang__) && __GNUC__ >= 12
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wuse-after-free"
#define COUNTED_PTR_POP_DIAGNOSTIC
#endif

// A reference-counted owning pointer. The count is a plain int: a buffer
// never leaves the request, and so the thread, that made it. A null pointer allocates no control block.
template <class T>
class counted_ptr {
  public:
    explicit counted_ptr(T* object = nullptr) : block(object ? new Block{object, 1} : nullptr) {}
    counted_ptr(const counted_ptr& other) : block(other.block) {
        if (block)
            ++block->count;
    }
    ~counted_ptr() { release(); }

    counted_ptr& operator=(const counted_ptr& other) {
        // Take the new reference first, so that sharing with oneself is harmless.
        Block* const shared = other.block;
        if (shared)
            ++shared->count;
        release();
        block = shared;
        return *this;
    }

    T& operator*() const { return *block->object; }
    T* operator->() const { return block->object; }
    T* get() const { return block ? block->object : nullptr; }
    int useCount() const { return block ? block->count : 0; }

  private:
    struct Block {
        T* object;
        int count;
    };

    void release() {
        Block* const last = block;
        block = nullptr;
        if (last && --last->count == 0) {
            delete last->object;
            delete last;
        }
    }

    Block* block;
};

#ifdef COUNTED_PTR_POP_DIAGNOSTIC
#undef COUNTED_PTR_POP_DIAGNOSTIC
#pragma GCC diagnostic pop
#endif
