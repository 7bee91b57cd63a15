// The serialisable object base and the registry that recreates objects by class name, for the
// lists that archive their elements by class.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace qk {

class CArchive;

class CObject {
  public:
    virtual ~CObject() = default;
    virtual void Serialize(CArchive &ar) {}
    virtual const char *GetRuntimeClassName() const { return "CObject"; }
};

class ClassRegistry {
  public:
    using Factory = std::unique_ptr<CObject> (*)();
    // Registers a class; the later of two registrations of one name wins.
    static void Register(const std::string &name, Factory factory);
    // A new object of the named class, or null when the name is unknown.
    static std::unique_ptr<CObject> Create(const std::string &name);
};

struct ClassRegistrar {
    ClassRegistrar(const char *name, ClassRegistry::Factory factory) {
        ClassRegistry::Register(name, factory);
    }
};

}  // namespace qk

// In a class body: the run-time class name and a factory.
#define QK_DECLARE_SERIAL(cls)                         \
  public:                                              \
    const char *GetRuntimeClassName() const override { \
        return #cls;                                   \
    }                                                  \
    static std::unique_ptr<qk::CObject> CreateObject();

// In the class's source file: the factory and its registration.
#define QK_IMPLEMENT_SERIAL(cls)                       \
    std::unique_ptr<qk::CObject> cls::CreateObject() { \
        return std::make_unique<cls>();                \
    }                                                  \
    static const qk::ClassRegistrar s_registrar_##cls(#cls, &cls::CreateObject);
