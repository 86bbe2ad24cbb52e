#include "guimodule.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

namespace Cli {

bool isDrawingCommand(const char *name)
{
    return std::strcmp(name, "render") == 0 || std::strcmp(name, "watermark") == 0;
}

namespace {

const GuiModule *load()
{
    std::error_code error;
    const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe", error);
    const std::filesystem::path folder = executable.parent_path();
    const char *name = "quire-gui.so";
    std::string reasons;
    for (const auto &candidate : {folder / QUIRE_MODULE_FROM_BINDIR / name, folder / name}) {
        if (!std::filesystem::exists(candidate, error)) {
            continue;
        }
        void *handle = ::dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!handle) {
            reasons += std::string("\n  ") + ::dlerror();
            continue;
        }
        using Entry = const GuiModule *(*)();
        if (auto entry = reinterpret_cast<Entry>(::dlsym(handle, "quire_gui_module"))) {
            return entry();
        }
        reasons += "\n  " + candidate.string() + ": not Quire's graphical module";
    }
    std::fprintf(stderr,
                 "quire: cannot load the graphical part of Quire (%s), looked for in %s and %s%s\n",
                 name,
                 (folder / QUIRE_MODULE_FROM_BINDIR).lexically_normal().c_str(),
                 folder.c_str(),
                 reasons.c_str());
    return nullptr;
}

} // namespace

const GuiModule *guiModule()
{
    static const GuiModule *const module = load();
    return module;
}

} // namespace Cli
