#pragma once

// A reference-counted owning pointer. The count is a plain int: the program
// has one thread. A null pointer allocates no control block.
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
        if (other.block)
            ++other.block->count;
        release();
        block = other.block;
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
        if (block && --block->count == 0) {
            delete block->object;
            delete block;
        }
        block = nullptr;
    }

    Block* block;
};
