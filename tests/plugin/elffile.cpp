#include "tests/plugin/elffile.h"

#include <elf.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace ZoTest {
namespace {

class Image {
 public:
  explicit Image(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(file), {});
    const auto header = At<Elf64_Ehdr>(0);
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64) {
      throw std::runtime_error("no 64-bit ELF file: " + path);
    }
  }

  template <typename T>
  T At(std::size_t offset) const {
    if (offset + sizeof(T) > bytes.size()) {
      throw std::runtime_error("ELF file is cut short");
    }
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof(T));
    return value;
  }

  std::string TextAt(std::size_t offset) const {
    const auto end = bytes.find('\0', offset);
    return bytes.substr(offset, end - offset);
  }

  Elf64_Shdr Section(std::size_t index) const {
    const auto header = At<Elf64_Ehdr>(0);
    return At<Elf64_Shdr>(header.e_shoff + index * sizeof(Elf64_Shdr));
  }

  std::size_t SectionCount() const { return At<Elf64_Ehdr>(0).e_shnum; }

 private:
  std::string bytes;
};

}  // namespace

ElfFile::ElfFile(const std::string& path) {
  const Image image(path);
  for (std::size_t index = 0; index < image.SectionCount(); ++index) {
    const Elf64_Shdr section = image.Section(index);
    if (section.sh_type == SHT_DYNSYM) {
      const auto texts = image.Section(section.sh_link).sh_offset;
      for (std::size_t at = sizeof(Elf64_Sym); at < section.sh_size; at += sizeof(Elf64_Sym)) {
        const auto symbol = image.At<Elf64_Sym>(section.sh_offset + at);
        symbols.push_back({image.TextAt(texts + symbol.st_name), symbol.st_shndx != SHN_UNDEF,
                           ELF64_ST_BIND(symbol.st_info) == STB_GNU_UNIQUE});
      }
    } else if (section.sh_type == SHT_DYNAMIC) {
      const auto texts = image.Section(section.sh_link).sh_offset;
      for (std::size_t at = 0; at < section.sh_size; at += sizeof(Elf64_Dyn)) {
        const auto entry = image.At<Elf64_Dyn>(section.sh_offset + at);
        if (entry.d_tag == DT_NEEDED) {
          needed.push_back(image.TextAt(texts + entry.d_un.d_val));
        }
      }
    }
  }
}

}  // namespace ZoTest
