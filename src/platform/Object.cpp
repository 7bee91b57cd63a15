#include "platform/Object.h"

#include <map>
#include <mutex>

namespace qk {
namespace {
// Built on first use, so that registrations from static initialisers of any file work.
std::map<std::string, ClassRegistry::Factory> &registry() {
    static std::map<std::string, ClassRegistry::Factory> classes;
    return classes;
}
std::mutex &registryMutex() {
    static std::mutex mutex;
    return mutex;
}
}  // namespace

void ClassRegistry::Register(const std::string &name, Factory factory) {
    std::lock_guard<std::mutex> guard(registryMutex());
    registry()[name] = factory;
}

std::unique_ptr<CObject> ClassRegistry::Create(const std::string &name) {
    Factory factory = nullptr;
    {
        std::lock_guard<std::mutex> guard(registryMutex());
        const auto it = registry().find(name);
        if (it != registry().end()) {
            factory = it->second;
        }
    }
    return factory != nullptr ? factory() : nullptr;
}

}  // namespace qk
