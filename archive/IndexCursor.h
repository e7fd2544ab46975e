// Index-cursor walking of an ordered map, shared by the two map classes.
// A map position is a plain index into the key order; to keep a full pass O(n)
// the map remembers one iterator and the index it stands at, and keeps that
// pair correct across inserts and erases so a walk never restarts from the top.
#pragma once

#include "archive/Prefetch.h"

#include <cstdint>
#include <iterator>

template <class Map>
struct IndexCursor {
    using Iter = typename Map::iterator;

    // Iterator at `index` (end() when past the last entry).
    static Iter Seek(Map& map, std::uint32_t index, Iter& iter, std::uint32_t& iterIndex, bool& valid) {
        if (index >= map.size()) return map.end();
        Iter it;
        std::uint32_t at;
        if (valid && iterIndex <= index) {
            it = iter;
            at = iterIndex;
        } else {
            it = map.begin();
            at = 0;
        }
        while (at < index) {
            ++it;
            ++at;
        }
        iter = it;
        iterIndex = at;
        valid = true;
        return it;
    }

    // The GetNextAssoc step: the entry at *rPosition (end() when the walk ran past the
    // last entry, which nulls the position); the position then moves on, and is
    // nulled after the last entry.
    static Iter Next(Map& map, std::uint32_t*& rPosition, Iter& iter, std::uint32_t& iterIndex, bool& valid) {
        const std::uint32_t index = *rPosition;
        const Iter it = Seek(map, index, iter, iterIndex, valid);
        if (it == map.end()) {
            rPosition = nullptr;
            return it;
        }
        iter = std::next(it);
        iterIndex = index + 1;
        *rPosition = index + 1;
        if (iter == map.end())
            rPosition = nullptr;
        else
            PrefetchAhead(&*iter);
        return it;
    }

    // Call after inserting `inserted`: entries before the remembered one shift it up by one.
    static void NoteInsert(Map& map, Iter inserted, Iter& iter, std::uint32_t& iterIndex, const bool& valid) {
        if (!valid) return;
        if (iter == map.end() || map.key_comp()(inserted->first, iter->first)) ++iterIndex;
    }

    // Call before erasing `victim`: erasing the remembered entry moves the memory to its
    // successor (same index); erasing an earlier entry shifts the index down by one.
    static void NoteErase(Map& map, Iter victim, Iter& iter, std::uint32_t& iterIndex, const bool& valid) {
        if (!valid) return;
        if (victim == iter)
            iter = std::next(victim);
        else if (iter == map.end() || map.key_comp()(victim->first, iter->first))
            --iterIndex;
    }
};
