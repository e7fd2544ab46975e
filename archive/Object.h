// Root of every persistent class and its static class record.
// Each persistent class carries one CRuntimeClass; the creatable ones are entered
// into the registry g_runtimeClasses at load time by an AFX_CLASSINIT object, so
// the archive can turn a class name read from a file back into a new object.
#pragma once

class CArchive;
class CObject;

struct CRuntimeClass {
    const char* m_lpszClassName;
    int m_nObjectSize;
    unsigned int m_wSchema;               // 0xFFFF: not serialisable; 0x80000000: versionable
    CObject* (*m_pfnCreateObject)();      // null for classes that cannot be created by name
    CRuntimeClass* m_pBaseClass;          // null only for CObject

    // New object of this class, or null when the class has no creation function.
    CObject* CreateObject() const;
    // True when `base` is this record or one of its ancestors (pointer identity).
    bool IsDerivedFrom(const CRuntimeClass* base) const;

    // Class record bytes: 16-bit schema, 16-bit name length, name bytes.
    void Store(CArchive& ar) const;
    // Reads a class record; null for a name of 64 bytes or more, a short read or an unknown name.
    static CRuntimeClass* Load(CArchive& ar, unsigned int* pwSchemaNum);
};

// One node of the registry of creatable classes.
struct CRuntimeList {
    CRuntimeList* m_pNext;
    CRuntimeClass* m_pClass;
};

// Front of the registry; the class registered last is found first.
extern CRuntimeList* g_runtimeClasses;

void AfxClassInit(CRuntimeClass* pClass);
void AfxClassClose(CRuntimeClass* pClass);

// Registers a class for as long as the object lives (one static object per class).
struct AFX_CLASSINIT {
    explicit AFX_CLASSINIT(CRuntimeClass* pClass);
    ~AFX_CLASSINIT();
    AFX_CLASSINIT(const AFX_CLASSINIT&) = delete;
    AFX_CLASSINIT& operator=(const AFX_CLASSINIT&) = delete;
    CRuntimeClass* m_pClass;
};

class CObject {
public:
    static CRuntimeClass classCObject;

    virtual ~CObject() = default;
    virtual void Serialize(CArchive& ar);
    virtual CRuntimeClass* GetRuntimeClass() const;

    bool IsKindOf(const CRuntimeClass* pClass) const;
    bool IsSerializable() const;

protected:
    CObject() = default;
    CObject(const CObject&) = default;
    CObject& operator=(const CObject&) = default;
};

#define CLASS_RECORD(class_name) (&class_name::class##class_name)

// Declares the static record and GetRuntimeClass of a class that is not creatable by name.
#define DECLARE_RUNTIME_CLASS(class_name)        \
public:                                          \
    static CRuntimeClass class##class_name;      \
    CRuntimeClass* GetRuntimeClass() const override;

// Declares the hooks of a class the archive can create by name.
#define DECLARE_PERSISTENT(class_name)           \
    DECLARE_RUNTIME_CLASS(class_name)            \
    static CObject* CreateObject();

#define IMPLEMENT_RUNTIME_CLASS(class_name, base_class_name, schema)                         \
    CRuntimeClass class_name::class##class_name = {#class_name, int(sizeof(class_name)),     \
                                                   schema, nullptr,                          \
                                                   CLASS_RECORD(base_class_name)};           \
    CRuntimeClass* class_name::GetRuntimeClass() const { return CLASS_RECORD(class_name); }

// Defines the record, the creation function and the registration object _init_<class>.
#define IMPLEMENT_PERSISTENT(class_name, base_class_name, schema)                            \
    CObject* class_name::CreateObject() { return new class_name; }                           \
    CRuntimeClass class_name::class##class_name = {#class_name, int(sizeof(class_name)),     \
                                                   schema, class_name::CreateObject,         \
                                                   CLASS_RECORD(base_class_name)};           \
    CRuntimeClass* class_name::GetRuntimeClass() const { return CLASS_RECORD(class_name); }  \
    static AFX_CLASSINIT _init_##class_name(CLASS_RECORD(class_name));
