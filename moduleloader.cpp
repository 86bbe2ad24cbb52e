#include "moduleloader.h"

#include <cstdio>
#include <dlfcn.h>
#include <filesystem>
#include <string>
#include <system_error>

namespace ModuleLoader {

namespace {

// The module's handle, loaded once; null when it cannot be.
void *module()
{
    static void *const handle = []() -> void * {
        std::error_code error;
        const std::filesystem::path executable
            = std::filesystem::read_symlink("/proc/self/exe", error);
        const std::filesystem::path folder = executable.parent_path();
        const char *name = "quire-gui.so";
        std::string reasons;
        for (const auto &candidate : {folder / QUIRE_MODULE_FROM_BINDIR / name, folder / name}) {
            if (!std::filesystem::exists(candidate, error)) {
                continue;
            }
            if (void *loaded = ::dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL)) {
                return loaded;
            }
            reasons += std::string("\n  ") + ::dlerror();
        }
        std::fprintf(stderr,
                     "quire: cannot load the graphical part of Quire (%s), looked for in %s and "
                     "%s%s\n",
                     name,
                     (folder / QUIRE_MODULE_FROM_BINDIR).lexically_normal().c_str(),
                     folder.c_str(),
                     reasons.c_str());
        return nullptr;
    }();
    return handle;
}

// The module's entry point of that name; null, with the reason on stderr, when there is none.
void *entry(const char *symbol)
{
    void *handle = module();
    if (!handle) {
        return nullptr;
    }
    void *found = ::dlsym(handle, symbol);
    if (!found) {
        std::fprintf(stderr, "quire: the graphical module is not Quire's (no %s)\n", symbol);
    }
    return found;
}

} // namespace

int launcher(int argc, char **argv)
{
    using Launcher = int (*)(int, char **);
    const auto open = reinterpret_cast<Launcher>(entry("quire_launcher"));
    return open ? open(argc, argv) : 1;
}

const Cli::Extensions *commandLineExtensions()
{
    using Extensions = const Cli::Extensions *(*)();
    const auto get = reinterpret_cast<Extensions>(entry("quire_command_line_extensions"));
    return get ? get() : nullptr;
}

} // namespace ModuleLoader
