// Objects the archive creates while loading, made traceable so that every run (a
// test or a fuzz input) can free what a failed load left behind: the collections
// do not own their elements.
#pragma once

#include "archive/arcobj.h"

#include <set>

inline std::set<CObject*>& LiveObjects() {
    static std::set<CObject*> live;
    return live;
}

inline void DeleteLiveObjects() {
    for (CObject* ob : std::set<CObject*>(LiveObjects())) delete ob;
}

template <class T>
struct Tracked : T {
    Tracked() { LiveObjects().insert(this); }
    ~Tracked() override { LiveObjects().erase(this); }
};

// A record under the real name; registered after the real one, loading finds it.
template <class T>
CRuntimeClass TrackedRecord(const char* name, unsigned schema = 0) {
    return {name, int(sizeof(T)), schema, [] { return static_cast<CObject*>(new Tracked<T>); }, &CObject::classCObject};
}
