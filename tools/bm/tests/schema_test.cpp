// The table of documents in docs/bm.md against what the commands print.
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "a_host.h"
#include "background_bm.h"
#include "unit/udp_inbox.h"

namespace bm::test {
namespace {

using members = std::set<std::string>;
using words = std::vector<std::string>;

std::vector<std::string> quoted_in(const std::string& text)
{
    std::vector<std::string> all;
    for (size_t at = text.find('`'); at != std::string::npos;) {
        const size_t end = text.find('`', at + 1);
        if (end == std::string::npos) break;
        all.push_back(text.substr(at + 1, end - at - 1));
        at = text.find('`', end + 1);
    }
    return all;
}

/// Members of each schema, whatever document of it they stand in.
std::map<std::string, members> documented()
{
    std::map<std::string, members> all;
    std::ifstream page(BM_DOCUMENTS);
    for (std::string line; std::getline(page, line);) {
        if (line.compare(0, 6, "| `bm.") != 0) continue;
        const size_t border = line.find(" | ", 2);
        const std::vector<std::string> names = quoted_in(line.substr(border));
        for (const std::string& schema : quoted_in(line.substr(0, border)))
            all[schema].insert(names.begin(), names.end());
    }
    return all;
}

class Schema {
  public:
    void take(const nlohmann::json& document)
    {
        EXPECT_EQ(document.value("version", 0), 1);
        members& seen = printed_[document.value("schema", "")];
        for (const auto& [name, value] : document.items()) {
            if (name != "schema" && name != "version") add(seen, name, value);
        }
    }
    void take_lines(const std::string& text)
    {
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) take(nlohmann::json::parse(line));
    }
    /// @param elsewhere  members that the documents of this test cannot have
    void expect(const std::string& schema, const members& elsewhere = {})
    {
        members page = documented()[schema];
        for (const std::string& name : elsewhere) EXPECT_EQ(page.erase(name), 1U) << schema << " " << name;
        EXPECT_EQ(printed_[schema], page) << schema;
    }

  private:
    static void add(members& seen, const std::string& name, const nlohmann::json& value)
    {
        seen.insert(name);
        if (name != "types" && name != "slow") add_inner(seen, value); // theirs are names of the host
    }
    static void add_inner(members& seen, const nlohmann::json& value)
    {
        if (value.is_object()) {
            for (const auto& [name, inner] : value.items()) add(seen, name, inner);
        } else if (value.is_array()) {
            for (const nlohmann::json& inner : value) add_inner(seen, inner);
        }
    }

    std::map<std::string, members> printed_;
};

class DocumentsOfAHost : public AHost {
  protected:
    void print(words arguments)
    {
        arguments.emplace_back("--json");
        const outcome seen = run_bm(arguments);
        EXPECT_LE(seen.status, 1) << arguments.front() << seen.err;
        schema.take(seen.document());
    }

    Schema schema;
    udp_inbox inbox;
};
IN_BOTH_GENERATIONS(DocumentsOfAHost);

TEST_P(DocumentsOfAHost, HaveTheMembersThatThePageLists)
{
    const int w = writer_slot({"A", "B"});
    const int r = reader_slot({"A"}, getpid(), inbox.port());
    writer_slot({"C"}, dead_pid());
    const int n = event(2, 10);
    slot(n).add_client(w, WAIT);
    slot(n).add_client(r, NTF);
    slot(n).add_entry("A", data_id, put({.server = "A"}));
    for (const words& each : std::vector<words>{{"ls"},
                                                {"show", "T_DATA"},
                                                {"clients", "-i", "0.05"},
                                                {"events"},
                                                {"why", "1"},
                                                {"stat", "-i", "0.05", "-n", "1"},
                                                {"doctor"},
                                                {"size", "--clients", "40000", "--block-size", "64k"},
                                                {"check", "--observe", "0"},
                                                {"repair", "--dry-run", "--observe", "0"},
                                                {"rm", "T_DATA", "--force", "--force"},
                                                {"completion", "bash"},
                                                {"version"}})
        print(each);
    for (const char* each : {"bm.ls", "bm.show", "bm.clients", "bm.events", "bm.why", "bm.stat", "bm.doctor", "bm.size",
                             "bm.rm", "bm.completion", "bm.version"})
        schema.expect(each);
    // Of segments that another user has closed.
    schema.expect("bm.check", {"key", "owner"});
    schema.expect("bm.repair", {"key", "owner"});
}

class DocumentsOfMembers : public CleanNamespace {};

TEST_F(DocumentsOfMembers, HaveTheMembersThatThePageLists)
{
    Schema schema;
    {
        background_bm master(
            {"master", "--json", "--forced", "--clients", "4", "--blocks", "4", "--rate", "4", "--records", "2024"});
        ASSERT_TRUE(master.says("\"ready\""));
        background_bm watcher({"watch", "NORMAL", "-n", "1", "--slow", "NONE", "--json"});
        background_bm reader({"read", "--count", "2", "--json"});
        ASSERT_TRUE(watcher.complains("bm: watching"));
        ASSERT_TRUE(reader.complains("bm: reading"));
        const outcome written = run_bm({"write", "--count", "3", "--rate", "20", "--json"});
        EXPECT_EQ(written.status, 0) << written.err;
        schema.take_lines(written.out);
        for (background_bm* each : {&watcher, &reader}) {
            EXPECT_EQ(each->wait(), 0) << each->seen_err;
            schema.take_lines(each->seen_out);
        }
        EXPECT_EQ(master.end(), 0);
        schema.take_lines(master.seen_out);
    }
    const outcome demo = run_bm({"demo", "--seconds", "1", "--json"});
    EXPECT_LE(demo.status, 1) << demo.err;
    schema.take(demo.document());
    for (const char* each : {"bm.master", "bm.write", "bm.read", "bm.demo"}) schema.expect(each);
    schema.expect("bm.watch", {"index", "value"}); // of run control's records
}

TEST(Page, HasARowForEveryCommandAndAManPageNamesEach)
{
    std::ifstream manual(BM_MANUAL);
    const std::string text((std::istreambuf_iterator<char>(manual)), std::istreambuf_iterator<char>());
    const auto page = documented();
    std::istringstream commands(run_bm({"completion", "fish"}).out);
    int count = 0;
    for (std::string line; std::getline(commands, line);) {
        const std::string mark = "__fish_use_subcommand -a ";
        const size_t at = line.find(mark);
        if (at == std::string::npos) continue;
        const std::string name = line.substr(at + mark.size(), line.find(' ', at + mark.size()) - at - mark.size());
        ++count;
        EXPECT_NE(text.find("*bm-" + name + "*(1)"), std::string::npos) << name << " is not in the manual";
        EXPECT_TRUE(name == "top" || page.count("bm." + name) == 1) << name << " is not in the table of documents";
    }
    EXPECT_GE(count, 19);
}

} // namespace
} // namespace bm::test
