#include "host/graph/BuildIdentity.h"

#include <elf.h>
#include <fmt/format.h>
#include <link.h>

#include <cstring>
#include <string>

namespace ViewTint::Host {

namespace {

/// The linker's identity of the program or library that holds this function, empty where it gave none.
struct Search {
    ElfW(Addr) inside;
    std::string identity;
};

constexpr std::size_t padded(std::size_t bytes) {
    return (bytes + 3) / 4 * 4;
}

void readNotes(const char* note, std::size_t bytes, std::string& identity) {
    for (const char* end = note + bytes; note + sizeof(ElfW(Nhdr)) <= end;) {
        ElfW(Nhdr) header;
        std::memcpy(&header, note, sizeof header);
        const char* name = note + sizeof header;
        const char* content = name + padded(header.n_namesz);
        if (header.n_type == NT_GNU_BUILD_ID && header.n_namesz == 4 && std::memcmp(name, "GNU", 4) == 0)
            identity.assign(content, header.n_descsz);
        note = content + padded(header.n_descsz);
    }
}

int visit(dl_phdr_info* module, std::size_t, void* data) {
    auto& search = *static_cast<Search*>(data);
    bool holds = false;
    for (int i = 0; i < module->dlpi_phnum; ++i) {
        const auto& segment = module->dlpi_phdr[i];
        const ElfW(Addr) begin = module->dlpi_addr + segment.p_vaddr;
        holds =
            holds || (segment.p_type == PT_LOAD && search.inside >= begin && search.inside < begin + segment.p_memsz);
    }
    if (!holds) return 0;
    for (int i = 0; i < module->dlpi_phnum; ++i) {
        const auto& segment = module->dlpi_phdr[i];
        if (segment.p_type == PT_NOTE)
            readNotes(reinterpret_cast<const char*>(module->dlpi_addr + segment.p_vaddr), segment.p_memsz,
                      search.identity);
    }
    return 1;
}

}  // namespace

std::string_view buildIdentity() {
    static const std::string identity = [] {
        Search search{reinterpret_cast<ElfW(Addr)>(&buildIdentity), {}};
        dl_iterate_phdr(visit, &search);
        return search.identity.empty() ? std::string(__DATE__ " " __TIME__) : search.identity;
    }();
    return identity;
}

const std::string& programVersion() {
    static const std::string version = [] {
        constexpr std::size_t tellingBytes = 6;
        std::string build;
        for (const char byte : buildIdentity().substr(0, tellingBytes))
            build += fmt::format("{:02x}", static_cast<unsigned char>(byte));
        return fmt::format("{} (build {})", VIEWTINT_VERSION, build);
    }();
    return version;
}

}  // namespace ViewTint::Host
