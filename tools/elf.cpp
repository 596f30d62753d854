#include "tools/elf.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include <elf.h>

#include <fmt/format.h>

#include "tools/manner.h"

namespace {

constexpr size_t kSmallest = 1024;
constexpr size_t kLargest = size_t{16} * 1024 * 1024;

static_assert(std::endian::native == std::endian::little); // as the files are that are read here

template <bool is64> struct Types;
template <> struct Types<false> {
    using Head = Elf32_Ehdr;
    using Segment = Elf32_Phdr;
    using Section = Elf32_Shdr;
    using Entry = Elf32_Dyn;
};
template <> struct Types<true> {
    using Head = Elf64_Ehdr;
    using Segment = Elf64_Phdr;
    using Section = Elf64_Shdr;
    using Entry = Elf64_Dyn;
};

// `count` bytes from `at`, and whether the file has them. The sum of the two may be too large for
// their type.
bool has(std::string_view file, uint64_t at, uint64_t count)
{
    return at <= file.size() && count <= file.size() - at;
}

// Requires: the file has it.
template <typename T> T read(std::string_view file, uint64_t at)
{
    static_assert(std::is_trivially_copyable_v<T>);
    T value;
    std::memcpy(&value, file.data() + at, sizeof value);
    return value;
}

std::string machineName(unsigned machine)
{
    switch (machine) {
    case EM_ARM:
        return "32-bit ARM";
    case EM_X86_64:
        return "x86_64";
    case EM_AARCH64:
        return "64-bit ARM";
    case EM_386:
        return "32-bit x86";
    default:
        return fmt::format("the processor with the number {}", machine);
    }
}

// Programs that may lie anywhere in memory have the type of shared libraries.
template <bool is64>
bool isProgramAnywhere(std::string_view file, const typename Types<is64>::Segment &dynamic)
{
    using Entry = typename Types<is64>::Entry;
    for (uint64_t at = 0; at + sizeof(Entry) <= dynamic.p_filesz; at += sizeof(Entry)) {
        const auto entry = read<Entry>(file, dynamic.p_offset + at);
        if (entry.d_tag == DT_NULL) {
            break;
        }
        if (entry.d_tag == DT_FLAGS_1) {
            return (entry.d_un.d_val & DF_1_PIE) != 0;
        }
    }
    return false;
}

template <bool is64> std::string faultOfParts(std::string_view file)
{
    using Segment = typename Types<is64>::Segment;
    using Section = typename Types<is64>::Section;
    std::string cut = fmt::format(
        "the file is not whole: it ends after {} bytes, in the middle of the program", file.size());
    if (!has(file, 0, sizeof(typename Types<is64>::Head))) {
        return cut;
    }
    const auto head = read<typename Types<is64>::Head>(file, 0);
    if (head.e_type != ET_EXEC && head.e_type != ET_DYN) {
        return head.e_type == ET_REL ? "it is an object file, which must be linked first"
                                     : "it is no executable";
    }
    if (head.e_phnum == 0 || head.e_phentsize != sizeof(Segment)) {
        return "it has no segments to load, so it is no executable";
    }
    if (!has(file, head.e_phoff, uint64_t{head.e_phnum} * sizeof(Segment)) ||
        (head.e_shnum != 0 &&
         (head.e_shentsize != sizeof(Section) ||
          !has(file, head.e_shoff, uint64_t{head.e_shnum} * sizeof(Section))))) {
        return cut;
    }
    bool canBegin = false;
    bool isProgram = head.e_type == ET_EXEC;
    for (unsigned i = 0; i < head.e_phnum; ++i) {
        const auto segment = read<Segment>(file, head.e_phoff + i * sizeof(Segment));
        if (!has(file, segment.p_offset, segment.p_filesz)) {
            return cut;
        }
        canBegin |= segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0 &&
                    head.e_entry >= segment.p_vaddr &&
                    head.e_entry - segment.p_vaddr < segment.p_filesz;
        isProgram |= segment.p_type == PT_INTERP ||
                     (segment.p_type == PT_DYNAMIC && isProgramAnywhere<is64>(file, segment));
    }
    for (unsigned i = 0; i < head.e_shnum; ++i) {
        const auto section = read<Section>(file, head.e_shoff + i * sizeof(Section));
        if (section.sh_type != SHT_NOBITS && section.sh_type != SHT_NULL &&
            !has(file, section.sh_offset, section.sh_size)) {
            return cut;
        }
    }
    if (!isProgram) {
        return "it is a shared library and no executable";
    }
    return canBegin ? "" : "it has no code where it should begin";
}

} // namespace

std::string faultOfProgram(std::string_view file, Machine machine)
{
    if (file.empty()) {
        return "the file is empty";
    }
    if (file.substr(0, SELFMAG) != ELFMAG) {
        return "it is no executable (ELF) file";
    }
    if (file.size() < kSmallest || file.size() > kLargest) {
        return fmt::format("it has {} bytes, and a program for the device has {}", file.size(),
                           sizesOfPrograms());
    }
    const auto klass = static_cast<unsigned char>(file[EI_CLASS]);
    const bool isLittle = static_cast<unsigned char>(file[EI_DATA]) == ELFDATA2LSB;
    if (!isLittle || (klass != ELFCLASS32 && klass != ELFCLASS64)) {
        return "it is for a processor of another kind, with the high byte first";
    }
    // The first fields are at the same places in both classes.
    const auto built = read<Elf32_Ehdr>(file, 0).e_machine;
    const bool fits = machine == Machine::kAny ||
                      (machine == Machine::kArm && built == EM_ARM && klass == ELFCLASS32) ||
                      (machine == Machine::kX86 && built == EM_X86_64 && klass == ELFCLASS64);
    if (!fits) {
        return fmt::format("it is for {}, and the device needs {}{}", machineName(built),
                           machineName(machine == Machine::kArm ? EM_ARM : EM_X86_64),
                           ifTyped(" (--machine says which)"));
    }
    return klass == ELFCLASS32 ? faultOfParts<false>(file) : faultOfParts<true>(file);
}

std::string sizesOfPrograms()
{
    static_assert(kSmallest % 1024 == 0 && kLargest % (1024 * 1024) == 0);
    return fmt::format("{} KiB to {} MiB", kSmallest / 1024, kLargest / 1024 / 1024);
}

std::string machineOf(std::string_view file)
{
    return machineName(read<Elf32_Ehdr>(file, 0).e_machine);
}
