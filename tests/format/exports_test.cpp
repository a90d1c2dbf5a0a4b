// What the libraries export is an interface: the lists beside this file change only on purpose.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <ostream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

#include <cxxabi.h>

#include <gtest/gtest.h>

namespace {

using names = std::set<std::string>;

struct library {
    const char* name;
    const char* file;
    const char* list;
    std::string version_node; ///< empty: the library's symbols carry no version
};

// The case's name in reports: without this it is the record's bytes.
void PrintTo(const library& lib, std::ostream* os) { *os << lib.name; }

const library libraries[] = {{"ZRK4bm", BM_LIBRARY, BM_EXPORTS, "ZRK4BM_0"},
                             {"ZRK4evutl", EVUTL_LIBRARY, EVUTL_EXPORTS, ""}};

std::string output_of(const std::string& command)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    if (!pipe) throw std::runtime_error("cannot run " + command);
    std::string text;
    std::array<char, 4096> part{};
    for (size_t n = 0; (n = fread(part.data(), 1, part.size(), pipe.get())) > 0;) text.append(part.data(), n);
    return text;
}

// Compilers differ in how many symbols one constructor or destructor gets: by their demangled names they are one.
std::string demangled(const std::string& symbol)
{
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> text(abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status),
                                                      std::free);
    return status == 0 ? text.get() : symbol;
}

struct dynamic_symbols {
    names exported;
    names of_another_version;
};

dynamic_symbols symbols_of(const library& lib)
{
    dynamic_symbols found;
    std::istringstream lines(output_of(std::string(NM_COMMAND) + " -D -P --defined-only " + lib.file));
    const std::string version = lib.version_node.empty() ? "" : "@@" + lib.version_node;
    for (std::string line; std::getline(lines, line);) {
        const std::string symbol = line.substr(0, line.find(' '));
        const size_t at = symbol.find('@');
        const std::string name = symbol.substr(0, at);
        if (!lib.version_node.empty() && name == lib.version_node) continue; // the node itself
        found.exported.insert(demangled(name));
        if (symbol.substr(name.size()) != version) found.of_another_version.insert(symbol);
    }
    return found;
}

names lines_of(const char* file)
{
    names lines;
    std::ifstream text(file);
    for (std::string line; std::getline(text, line);) lines.insert(line);
    return lines;
}

// One per line: a difference can be taken over into the list as it is printed.
std::string only_in(const names& these, const names& those)
{
    std::string text;
    for (const std::string& name : these) {
        if (!those.contains(name)) text += name + "\n";
    }
    return text;
}

class Exports : public testing::TestWithParam<library> {};

TEST_P(Exports, EveryListedSymbolIsThere)
{
    const names listed = lines_of(GetParam().list);
    ASSERT_FALSE(listed.empty()) << "no list at " << GetParam().list;
    EXPECT_EQ(only_in(listed, symbols_of(GetParam()).exported), "");
}

TEST_P(Exports, NothingElseIsVisible)
{
    const names exported = symbols_of(GetParam()).exported;
    ASSERT_FALSE(exported.empty()) << "nothing seen in " << GetParam().file;
    EXPECT_EQ(only_in(exported, lines_of(GetParam().list)), "");
}

TEST_P(Exports, CarryTheLibrarysVersion)
{
    const dynamic_symbols found = symbols_of(GetParam());
    ASSERT_FALSE(found.exported.empty());
    EXPECT_EQ(only_in(found.of_another_version, {}), "");
}

INSTANTIATE_TEST_SUITE_P(Library, Exports, testing::ValuesIn(libraries),
                         [](const auto& instance) { return instance.param.name; });

} // namespace
