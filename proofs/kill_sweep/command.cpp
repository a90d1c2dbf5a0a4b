#include "command.h"

#include <array>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

namespace sweep {
namespace {

using nlohmann::json;

// The host is at rest but for its monitor: what moves does so for microseconds.
constexpr const char* OBSERVATION_S = "0.3";

/// Runs a program and reads its standard output to the end.
std::pair<int, std::string> output_of(std::vector<std::string> words)
{
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(ends[1], STDOUT_FILENO);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(ends[1]);
    std::string text;
    std::array<char, 4096> piece{};
    for (ssize_t got = 0; (got = read(ends[0], piece.data(), piece.size())) > 0;)
        text.append(piece.data(), static_cast<size_t>(got));
    close(ends[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    return {WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status), text};
}

command_report run(const std::string& command, bool wide, const char* what, const char* option)
{
    const auto [status, document] =
        output_of({command, what, option, "--json", "--records", wide ? "2024" : "2010", "--observe", OBSERVATION_S});
    return command_report_of(status, document);
}

void take_findings(command_report& report, const json& document)
{
    for (const json& finding : document.at("findings")) {
        const std::string verdict = finding.at("verdict");
        report.lines.push_back(verdict + ": " + finding.at("text").get<std::string>());
        if (verdict == "broken") ++report.broken;
        if (verdict == "undecidable") {
            report.undecided.insert(finding.at("partition").get<std::string>() + ": buffer " +
                                    std::to_string(finding.at("number").get<int>()));
        }
    }
    for (const json& partition : document.at("partitions")) {
        const std::string text = partition.at("text");
        if (partition.at("state") == "looked at" && text.empty()) continue;
        report.lines.push_back("not looked at: " + partition.at("name").get<std::string>() + ' ' + text);
        ++report.broken;
    }
}

} // namespace

command_report command_report_of(int status, const std::string& document)
{
    command_report report;
    report.status = status;
    try {
        take_findings(report, json::parse(document));
    } catch (const json::exception& e) {
        report.wrong = std::string("printed no report: ") + e.what();
        return report;
    }
    const bool needs_attention = report.broken > 0 || !report.undecided.empty();
    if ((status != 0) != needs_attention)
        report.wrong =
            "ended with " + std::to_string(status) + " after " + std::to_string(report.lines.size()) + " findings";
    return report;
}

checked check_with_command(const std::string& command, bool wide, bool repair)
{
    checked all;
    command_report last;
    const auto look = [&](const char* what, const char* option) {
        last = run(command, wide, what, option);
        all.lines.insert(all.lines.end(), last.lines.begin(), last.lines.end());
        if (!last.wrong.empty()) all.wrong.push_back(std::string("bm ") + what + ' ' + last.wrong);
        all.statuses += (all.statuses.empty() ? "" : " ") + std::to_string(last.status);
    };
    look("check", "--held");
    all.saw_nothing = last.lines.empty();
    if (repair) {
        look("repair", "--orphan-sets");
        look("check", "--held");
    }
    all.undecided = last.undecided;
    all.left = last.broken;
    return all;
}

} // namespace sweep
