// Collections: the pointer array's growth rule, list and map cursors (including
// removal during a map walk), and the Serialize formats of the list, the string
// map and the string array.
#include "ArchiveTestSupport.h"
#include "TestUtil.h"

#include <gtest/gtest.h>

#include <memory>

using testutil::Hex;

TEST(PtrArray, GrowthRules) {
    CPtrArray a;
    a.SetSize(80);
    EXPECT_EQ(80, a.GetAllocatedSize());   // exactly n slots the first time
    a.Add(&a);
    EXPECT_EQ(90, a.GetAllocatedSize());   // step size/8
    EXPECT_EQ(81, a.GetSize());
    EXPECT_EQ(&a, a.GetAt(80));

    CPtrArray small;
    small.SetSize(8);
    small.Add(nullptr);
    EXPECT_EQ(12, small.GetAllocatedSize());   // step clamped up to 4

    CPtrArray huge;
    huge.SetSize(16000);
    huge.SetSize(16001);
    EXPECT_EQ(17024, huge.GetAllocatedSize());   // step clamped down to 1024
    huge.SetSize(20000, 10);
    EXPECT_EQ(20000, huge.GetAllocatedSize());   // max(allocated + step, n)
    huge.SetSize(20001);
    EXPECT_EQ(20010, huge.GetAllocatedSize());
    EXPECT_EQ(nullptr, huge.GetAt(20000));   // new slots are zeroed
    huge.SetSize(0);
    EXPECT_EQ(0, huge.GetAllocatedSize());
    EXPECT_EQ(nullptr, huge.GetData());
}

TEST(PtrArray, InsertRemoveAppendCopy) {
    int v[6];
    CPtrArray a;
    a.InsertAt(2, &v[0]);            // past the end: grows to index + count
    EXPECT_EQ(3, a.GetSize());
    EXPECT_EQ(nullptr, a.GetAt(0));
    a.InsertAt(1, &v[1], 2);         // inside: the tail moves up
    ASSERT_EQ(5, a.GetSize());
    EXPECT_EQ(&v[1], a.GetAt(1));
    EXPECT_EQ(&v[1], a.GetAt(2));
    EXPECT_EQ(&v[0], a.GetAt(4));
    a.RemoveAt(1, 2);
    ASSERT_EQ(3, a.GetSize());
    EXPECT_EQ(&v[0], a.GetAt(2));
    a.RemoveAt(2, 99);               // clamped to the end
    EXPECT_EQ(2, a.GetSize());
    a.RemoveAt(-1, 1);
    EXPECT_EQ(2, a.GetSize());

    CPtrArray b;
    b.Add(&v[2]);
    b.Add(&v[3]);
    EXPECT_EQ(2, a.Append(b));
    a.InsertAt(0, &b);
    ASSERT_EQ(6, a.GetSize());
    EXPECT_EQ(&v[2], a.GetAt(0));
    EXPECT_EQ(&v[3], a.GetAt(1));
    EXPECT_EQ(&v[3], a.GetAt(5));
    a.Append(a);                     // self append doubles
    EXPECT_EQ(12, a.GetSize());
    EXPECT_EQ(&v[3], a.GetAt(11));
    a.InsertAt(3, &a);               // self insert
    EXPECT_EQ(24, a.GetSize());
    EXPECT_EQ(a.GetAt(0), a.GetAt(3));

    CPtrArray c;
    c.Copy(b);
    EXPECT_EQ(2, c.GetSize());
    c.SetAtGrow(5, &v[5]);
    EXPECT_EQ(6, c.GetSize());
    c.FreeExtra();
    EXPECT_EQ(6, c.GetAllocatedSize());
    EXPECT_EQ(5, c.GetUpperBound());
}

TEST(ObList, OneCursorPerList) {
    CTestItem a(1, "a"), b(2, "b"), c(3, "c");
    CObList list;
    EXPECT_EQ(nullptr, list.GetHeadPosition());
    EXPECT_EQ(nullptr, list.RemoveHead());
    list.AddTail(&b);
    list.AddHead(&a);
    list.AddTail(&c);

    POSITION pos = list.GetHeadPosition();
    EXPECT_EQ(&a, list.GetNext(pos));
    POSITION second = list.GetHeadPosition();   // a new walk resets the first one
    EXPECT_EQ(pos, second);
    EXPECT_EQ(&a, list.GetNext(pos));
    EXPECT_EQ(&b, list.GetNext(pos));
    EXPECT_EQ(&c, list.GetNext(pos));
    EXPECT_EQ(nullptr, pos);
    EXPECT_EQ(nullptr, list.GetNext(pos));   // null position: the static null slot

    pos = list.GetTailPosition();
    EXPECT_EQ(&c, list.GetAt(pos));
    EXPECT_EQ(&c, list.GetPrev(pos));
    EXPECT_EQ(&b, list.GetPrev(pos));
    EXPECT_EQ(&a, list.GetPrev(pos));
    EXPECT_EQ(nullptr, pos);

    // A write through the null slot does not stick.
    list.GetAt(nullptr) = &a;
    EXPECT_EQ(nullptr, list.GetAt(nullptr));

    pos = list.GetHeadPosition();
    list.GetNext(pos);               // cursor now at b
    list.RemoveAt(pos);
    EXPECT_EQ(2, list.GetCount());
    EXPECT_EQ(&c, list.RemoveTail());
    list.AddTail(&list);             // appends all of itself
    EXPECT_EQ(2, list.GetCount());
    list.RemoveAll();
    EXPECT_TRUE(list.IsEmpty());
}

TEST(ObList, SerializeFormatAndLoadingAppends) {
    CTestItem a(1, "a");
    CObList list;
    list.AddTail(&a);
    list.AddTail(static_cast<CObject*>(nullptr));
    list.AddTail(&a);
    const Bytes bytes = StoreBytes([&](CArchive& ar) { list.Serialize(ar); });
    EXPECT_EQ(Hex(Cat({{0x03, 0x00}, {0xFF, 0xFF}, ClassRecord(1, "CTestItem"), Le32(1), {0x01, 'a'},
                       {0x00, 0x00}, {0x02, 0x00}})),
              Hex(bytes));

    CObList loaded;
    LoadBytes(bytes, [&](CArchive& ar) { loaded.Serialize(ar); });
    LoadBytes(bytes, [&](CArchive& ar) { loaded.Serialize(ar); });
    ASSERT_EQ(6, loaded.GetCount());
    POSITION pos = loaded.GetHeadPosition();
    std::unique_ptr<CObject> first(loaded.GetNext(pos));
    EXPECT_EQ(nullptr, loaded.GetNext(pos));
    EXPECT_EQ(first.get(), loaded.GetNext(pos));
    std::unique_ptr<CObject> second(loaded.GetNext(pos));
    EXPECT_NE(first.get(), second.get());   // each archive makes its own objects
    EXPECT_EQ(Hex({0x00, 0x00}), Hex(StoreBytes([&](CArchive& ar) { CObList().Serialize(ar); })));
}

TEST(MapStringToOb, OrderCursorAndItemByPosition) {
    CTestItem v1(1, ""), v2(2, ""), v3(3, "");
    CMapStringToOb map;
    EXPECT_EQ(nullptr, map.GetStartPosition());
    map.SetAt("b", &v2);
    map.SetAt("a", &v1);
    map.SetAt("B", &v3);   // byte order: upper case first
    map["c"];
    EXPECT_EQ(4, map.GetCount());

    std::vector<std::string> keys;
    std::string key;
    CObject* value = nullptr;
    POSITION pos = map.GetStartPosition();
    while (pos) {
        map.GetNextAssoc(pos, key, value);
        keys.push_back(key);
    }
    EXPECT_EQ((std::vector<std::string>{"B", "a", "b", "c"}), keys);
    EXPECT_EQ(nullptr, value);   // "c" was inserted with a null value

    bool last = true;
    ASSERT_TRUE(map.GetItemByPosition(1, last, key, value));
    EXPECT_EQ("a", key);
    EXPECT_FALSE(last);
    ASSERT_TRUE(map.GetItemByPosition(3, last, key, value));
    EXPECT_TRUE(last);
    EXPECT_FALSE(map.GetItemByPosition(4, last, key, value));
    EXPECT_FALSE(map.GetItemByPosition(-1, last, key, value));
    ASSERT_TRUE(map.GetItemByPosition(0, last, key, value));   // backwards jump
    EXPECT_EQ("B", key);

    EXPECT_TRUE(map.Lookup("a", value));
    EXPECT_EQ(&v1, value);
    EXPECT_FALSE(map.Lookup("A", value));
    EXPECT_TRUE(map.LookupKey("b", key));
    EXPECT_FALSE(map.RemoveKey("zz"));
    map.RemoveAll();
    EXPECT_EQ(nullptr, map.GetStartPosition());
}

TEST(MapStringToOb, MutationsDuringAWalkFollowTheIndex) {
    CTestItem item;
    CMapStringToOb map;
    for (const char* k : {"a", "b", "c", "d", "e"}) map.SetAt(k, &item);

    // Removing the entry just returned: the next index now names the entry after
    // the one that moved down, so that one is passed over (index semantics).
    std::vector<std::string> seen;
    std::string key;
    CObject* value;
    POSITION pos = map.GetStartPosition();
    while (pos) {
        map.GetNextAssoc(pos, key, value);
        seen.push_back(key);
        if (key == "b") {
            EXPECT_TRUE(map.RemoveKey(key));
        }
    }
    EXPECT_EQ((std::vector<std::string>{"a", "b", "d", "e"}), seen);

    // Removing each returned entry in turn visits every other one; the call that
    // finds no entry any more nulls the value and leaves the key alone.
    seen.clear();
    pos = map.GetStartPosition();   // a c d e
    while (pos) {
        map.GetNextAssoc(pos, key, value);
        if (!value) {
            seen.push_back("<none>");
            continue;
        }
        seen.push_back(key);
        map.RemoveKey(key);
    }
    EXPECT_EQ((std::vector<std::string>{"a", "d", "<none>"}), seen);
    EXPECT_EQ(2, map.GetCount());   // c e

    // Removing the last two entries while the walk stands before them ends the walk
    // with the value nulled instead of handing out a stale one.
    for (const char* k : {"a", "b", "d"}) map.SetAt(k, nullptr);   // a b c d e
    map.SetAt("c", &item);
    pos = map.GetStartPosition();
    map.GetNextAssoc(pos, key, value);   // a
    map.GetNextAssoc(pos, key, value);   // b
    map.GetNextAssoc(pos, key, value);   // c
    EXPECT_EQ(&item, value);
    map.RemoveKey("a");
    map.RemoveKey("b");                  // c d e: index 3 is past the end
    ASSERT_NE(nullptr, pos);
    map.GetNextAssoc(pos, key, value);
    EXPECT_EQ(nullptr, pos);
    EXPECT_EQ(nullptr, value);

    // Inserts before and after the cursor keep the index meaning "entry n".
    map.RemoveAll();
    for (const char* k : {"b", "d", "f"}) map.SetAt(k, nullptr);
    pos = map.GetStartPosition();
    map.GetNextAssoc(pos, key, value);   // b; cursor 1 -> d
    map.SetAt("a", nullptr);             // now a b d f: index 1 is b again
    map.SetAt("e", nullptr);
    seen.clear();
    while (pos) {
        map.GetNextAssoc(pos, key, value);
        seen.push_back(key);
    }
    EXPECT_EQ((std::vector<std::string>{"b", "d", "e", "f"}), seen);

    // Last entry nulls the position.
    CMapStringToOb one;
    one.SetAt("only", nullptr);
    pos = one.GetStartPosition();
    one.GetNextAssoc(pos, key, value);
    EXPECT_EQ("only", key);
    EXPECT_EQ(nullptr, pos);
}

TEST(MapStringToOb, SerializeFormatAndEmptyKeyReuse) {
    CMapStringToOb empty;
    EXPECT_EQ(Hex({0x00, 0x00}), Hex(StoreBytes([&](CArchive& ar) { empty.Serialize(ar); })));

    CTestItem item(5, "v");
    CMapStringToOb map;
    map.SetAt("b", nullptr);
    map.SetAt("a", &item);
    const Bytes bytes = StoreBytes([&](CArchive& ar) { map.Serialize(ar); });
    EXPECT_EQ(Hex(Cat({{0x02, 0x00}, {0x01, 'a'}, {0xFF, 0xFF}, ClassRecord(1, "CTestItem"), Le32(5), {0x01, 'v'},
                       {0x01, 'b'}, {0x00, 0x00}})),
              Hex(bytes));

    // Loading adds to the existing contents.
    CMapStringToOb loaded;
    loaded.SetAt("z", nullptr);
    LoadBytes(bytes, [&](CArchive& ar) { loaded.Serialize(ar); });
    EXPECT_EQ(3, loaded.GetCount());
    CObject* value = nullptr;
    ASSERT_TRUE(loaded.Lookup("a", value));
    std::unique_ptr<CObject> owner(value);
    EXPECT_EQ(5u, static_cast<CTestItem*>(value)->m_value);

    // An empty stored key reuses the key of the pair before it.
    CMapStringToOb reuse;
    LoadBytes({0x03, 0x00, 0x01, 'k', 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 'm', 0x00, 0x00},
              [&](CArchive& ar) { reuse.Serialize(ar); });
    EXPECT_EQ(2, reuse.GetCount());
    EXPECT_TRUE(reuse.Lookup("k", value));
    EXPECT_FALSE(reuse.Lookup("", value));
    // As the first pair, an empty key stays empty.
    LoadBytes({0x01, 0x00, 0x00, 0x00, 0x00}, [&](CArchive& ar) { reuse.Serialize(ar); });
    EXPECT_TRUE(reuse.Lookup("", value));
}

TEST(MapPtrToPtr, LookupAndWalk) {
    int x, y, z;
    CMapPtrToPtr map(16);
    map.SetAt(&y, &x);
    map[&x] = &y;
    map.SetAt(&z, nullptr);
    void* value = nullptr;
    EXPECT_TRUE(map.Lookup(&x, value));
    EXPECT_EQ(&y, value);
    EXPECT_EQ(&x, map.GetValueAt(&y));
    EXPECT_EQ(nullptr, map.GetValueAt(&value));
    EXPECT_TRUE(map.RemoveKey(&z));
    EXPECT_FALSE(map.RemoveKey(&z));

    int walked = 0;
    void* key = nullptr;
    void* previous = nullptr;
    POSITION pos = map.GetStartPosition();
    while (pos) {
        map.GetNextAssoc(pos, key, value);
        if (walked++) {
            EXPECT_LT(reinterpret_cast<std::uintptr_t>(previous), reinterpret_cast<std::uintptr_t>(key));
        }
        previous = key;
    }
    EXPECT_EQ(2, walked);
    bool last = false;
    EXPECT_TRUE(map.GetItemByPosition(1, last, key, value));
    EXPECT_TRUE(last);
    map.RemoveAll();
    EXPECT_EQ(0, map.GetCount());
    EXPECT_EQ(nullptr, map.GetStartPosition());
}

TEST(StringArray, SerializeFormatAndLoadingReplaces) {
    CStringArray array;
    array.Add("one");
    array.Add(std::string());
    array.Add(std::string("x"));
    const Bytes bytes = StoreBytes([&](CArchive& ar) { array.Serialize(ar); });
    EXPECT_EQ(Hex({0x03, 0x00, 0x03, 'o', 'n', 'e', 0x00, 0x01, 'x'}), Hex(bytes));

    CStringArray loaded;
    loaded.Add("old");
    LoadBytes(bytes, [&](CArchive& ar) { loaded.Serialize(ar); });
    ASSERT_EQ(3, loaded.GetSize());
    EXPECT_EQ("one", loaded.GetAt(0));
    EXPECT_EQ("", loaded.GetAt(1));   // each string is fresh: no reuse of "one"
    EXPECT_EQ("x", loaded.ElementAt(2));
}
