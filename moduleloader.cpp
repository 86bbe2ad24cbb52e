#include "moduleloader.h"

#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <string>
#include <system_error>

namespace ModuleLoader {

namespace {

// The module of that file name, from beside the executable in a build tree or from the private
// library folder once installed; null, with the reason on stderr, when it cannot be loaded.
void *load(const char *name)
{
    std::error_code error;
    const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe", error);
    const std::filesystem::path folder = executable.parent_path();
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
                 "quire: cannot load a part of Quire (%s), looked for in %s and %s%s\n",
                 name,
                 (folder / QUIRE_MODULE_FROM_BINDIR).lexically_normal().c_str(),
                 folder.c_str(),
                 reasons.c_str());
    return nullptr;
}

// The module's entry point of that name; null, with the reason on stderr, when there is none.
void *entry(void *module, const char *name, const char *symbol)
{
    if (!module) {
        return nullptr;
    }
    void *found = ::dlsym(module, symbol);
    if (!found) {
        std::fprintf(stderr, "quire: %s is not Quire's (no %s)\n", name, symbol);
    }
    return found;
}

void *graphicalModule()
{
    static void *const handle = load("quire-gui.so");
    return handle;
}

const Cli::Extensions *graphicalExtensions()
{
    using Extensions = const Cli::Extensions *(*)();
    const auto get = reinterpret_cast<Extensions>(
        entry(graphicalModule(), "quire-gui.so", "quire_command_line_extensions"));
    return get ? get() : nullptr;
}

// The drawing module reaches the graphical one through the loader it is given, for the
// watermark's preview (a page image).
const Cli::Extensions *drawingExtensions()
{
    static const Cli::Extensions *const extensions = [] {
        static void *const handle = load("quire-draw.so");
        using Extensions = const Cli::Extensions *(*)(Cli::ExtensionLoader graphical);
        const auto get = reinterpret_cast<Extensions>(
            entry(handle, "quire-draw.so", "quire_drawing_extensions"));
        return get ? get(graphicalExtensions) : nullptr;
    }();
    return extensions;
}

} // namespace

int launcher(int argc, char **argv)
{
    using Launcher = int (*)(int, char **);
    const auto open
        = reinterpret_cast<Launcher>(entry(graphicalModule(), "quire-gui.so", "quire_launcher"));
    return open ? open(argc, argv) : 1;
}

Cli::ExtensionLoader commandLineExtensions(int argc, char **argv)
{
    return argc > 1 && std::strcmp(argv[1], "watermark") == 0 ? drawingExtensions
                                                              : graphicalExtensions;
}

} // namespace ModuleLoader
