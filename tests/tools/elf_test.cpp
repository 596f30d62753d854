// Programs for the device, and what is none. The files are made here, field by field.

#include "tools/elf.h"

#include <cstring>

#include <elf.h>

#include <gtest/gtest.h>

#include "tools/manner.h"

namespace {

// The least that is a program: head, one segment with everything, one section with its end.
template <typename Head, typename Segment, typename Section> struct Program {
    Head head{};
    Segment segment{};
    Section section{};
    size_t size = 4096;

    Program(unsigned char klass, unsigned machine)
    {
        std::memcpy(head.e_ident, ELFMAG, SELFMAG);
        head.e_ident[EI_CLASS] = klass;
        head.e_ident[EI_DATA] = ELFDATA2LSB;
        head.e_type = ET_EXEC;
        head.e_machine = static_cast<decltype(head.e_machine)>(machine);
        head.e_phoff = sizeof head;
        head.e_phentsize = sizeof segment;
        head.e_phnum = 1;
        head.e_shoff = sizeof head + sizeof segment;
        head.e_shentsize = sizeof section;
        head.e_shnum = 1;
        head.e_entry = 0x10400;
        segment.p_type = PT_LOAD;
        segment.p_flags = PF_R | PF_X;
        segment.p_vaddr = 0x10000;
        segment.p_filesz = 4096;
        section.sh_type = SHT_PROGBITS;
        section.sh_offset = 4000;
        section.sh_size = 96;
    }

    std::string bytes() const
    {
        std::string file(reinterpret_cast<const char *>(&head), sizeof head);
        file.append(reinterpret_cast<const char *>(&segment), sizeof segment);
        file.append(reinterpret_cast<const char *>(&section), sizeof section);
        file.resize(size);
        return file;
    }
};

struct Arm : Program<Elf32_Ehdr, Elf32_Phdr, Elf32_Shdr> {
    Arm() : Program(ELFCLASS32, EM_ARM) {}
};
struct X86 : Program<Elf64_Ehdr, Elf64_Phdr, Elf64_Shdr> {
    X86() : Program(ELFCLASS64, EM_X86_64) {}
};

TEST(Elf, TakesAProgramForItsMachine)
{
    EXPECT_EQ(faultOfProgram(Arm().bytes(), Machine::kArm), "");
    EXPECT_EQ(faultOfProgram(Arm().bytes(), Machine::kAny), "");
    EXPECT_EQ(faultOfProgram(X86().bytes(), Machine::kX86), "");
    EXPECT_EQ(faultOfProgram(X86().bytes(), Machine::kAny), "");
    EXPECT_EQ(faultOfProgram(Arm().bytes() + "more", Machine::kArm), "");
    EXPECT_EQ(faultOfProgram(X86().bytes(), Machine::kArm),
              "it is for x86_64, and the device needs 32-bit ARM (--machine says which)");
    EXPECT_EQ(faultOfProgram(Arm().bytes(), Machine::kX86),
              "it is for 32-bit ARM, and the device needs x86_64 (--machine says which)");
}

TEST(Elf, NamesNoOptionToWhoTypesNone)
{
    manner().isTyped = false;
    EXPECT_EQ(faultOfProgram(X86().bytes(), Machine::kArm),
              "it is for x86_64, and the device needs 32-bit ARM");
    manner().isTyped = true;
}

TEST(Elf, TakesNoOtherFile)
{
    EXPECT_EQ(faultOfProgram("", Machine::kAny), "the file is empty");
    EXPECT_EQ(faultOfProgram(std::string(5000, 'x'), Machine::kAny),
              "it is no executable (ELF) file");
    EXPECT_EQ(faultOfProgram("#!/bin/sh\n", Machine::kAny), "it is no executable (ELF) file");
    Arm large;
    for (const size_t size : {size_t{1023}, size_t{16 * 1024 * 1024 + 1}}) {
        EXPECT_EQ(faultOfProgram((large.size = size, large.bytes()), Machine::kArm),
                  "it has " + std::to_string(size) +
                      " bytes, and a program for the device has 1 KiB to 16 MiB");
    }
    large.size = size_t{16} * 1024 * 1024;
    EXPECT_EQ(faultOfProgram(large.bytes(), Machine::kArm), "");
}

TEST(Elf, TakesNoProgramThatIsCutAnywhere)
{
    const std::string whole = Arm().bytes();
    for (size_t size = 1024; size < whole.size(); size += 7) {
        EXPECT_TRUE(faultOfProgram(whole.substr(0, size), Machine::kArm)
                        .starts_with("the file is not "
                                     "whole"))
            << size;
    }
    // Each end on its own, and places that do not fit into a number.
    X86 program;
    program.segment.p_filesz = 4097;
    EXPECT_NE(faultOfProgram(program.bytes(), Machine::kX86), "");
    program = X86();
    program.section.sh_size = 97;
    EXPECT_NE(faultOfProgram(program.bytes(), Machine::kX86), "");
    program.section.sh_type = SHT_NOBITS; // has no bytes in the file
    EXPECT_EQ(faultOfProgram(program.bytes(), Machine::kX86), "");
    program = X86();
    program.segment.p_offset = ~uint64_t{0} - 1;
    EXPECT_NE(faultOfProgram(program.bytes(), Machine::kX86), "");
    program = X86();
    program.head.e_phoff = ~uint64_t{0} - 10;
    EXPECT_NE(faultOfProgram(program.bytes(), Machine::kX86), "");
    program = X86();
    program.head.e_shoff = 4095;
    EXPECT_NE(faultOfProgram(program.bytes(), Machine::kX86), "");
}

TEST(Elf, TakesNoLibraryAndNoObjectFile)
{
    Arm program;
    program.head.e_type = ET_REL;
    EXPECT_NE(faultOfProgram(program.bytes(), Machine::kArm).find("object file"),
              std::string::npos);
    program.head.e_type = ET_DYN;
    EXPECT_NE(faultOfProgram(program.bytes(), Machine::kArm).find("shared library"),
              std::string::npos);
    program.head.e_type = ET_CORE;
    EXPECT_NE(faultOfProgram(program.bytes(), Machine::kArm), "");
    program = Arm();
    program.head.e_entry = 0;
    EXPECT_NE(faultOfProgram(program.bytes(), Machine::kArm), "");
    program = Arm();
    program.head.e_phnum = 0;
    EXPECT_NE(faultOfProgram(program.bytes(), Machine::kArm), "");
}

} // namespace
