#pragma once

#include <atomic>

// A plain word that threads, or a thread and a signal handler, share. Private to this tree.

namespace va
{

// All who write such a word, and all who read it while another may write, do it by this.
template <class Word>
std::atomic_ref<Word> shared(Word &word)
{
    static_assert(std::atomic_ref<Word>::is_always_lock_free, "a signal handler may use it");
    return std::atomic_ref<Word>(word);
}

template <class Word>
Word load_shared(const Word &word, std::memory_order order = std::memory_order_seq_cst)
{
    return shared(const_cast<Word &>(word)).load(order); // which takes no const one
}

} // namespace va
