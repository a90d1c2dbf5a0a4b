// bm completion: what a shell needs to complete the command, made of the parser itself.
#include <string>
#include <vector>

#include <fmt/format.h>

#include "cli/output.h"
#include "commands/commands.h"

namespace bm {
namespace {

struct completion_options {
    std::string shell;
};

/// "--json", "-n": as they are typed.
std::vector<std::string> spellings(const described_option& option)
{
    std::vector<std::string> all;
    for (const std::string& name : option.long_names) all.push_back("--" + name);
    for (const std::string& name : option.short_names) all.push_back("-" + name);
    return all;
}

std::string all_spellings(const described_command& command)
{
    std::string text;
    for (const described_option& option : command.options) {
        for (const std::string& name : spellings(option)) text += (text.empty() ? "" : " ") + name;
    }
    return text;
}

std::string names_of(const std::vector<described_command>& commands)
{
    std::string text;
    for (const described_command& each : commands) text += (text.empty() ? "" : " ") + each.name;
    return text;
}

/// For single quotes of all three shells; colons and brackets mean something to zsh.
std::string quoted(const std::string& text)
{
    std::string safe;
    for (const char c : text) {
        if (c == '\'' || c == ':' || c == '[' || c == ']' || c == '\\') continue;
        safe += c;
    }
    return safe;
}

std::string for_bash(const command_line& line)
{
    const described_command common = line.common();
    std::string text = "# bash completion of bm: bm completion bash > /etc/bash_completion.d/bm\n_bm() {\n"
                       "    local word=${COMP_WORDS[COMP_CWORD]} command= i\n"
                       "    for ((i = 1; i < COMP_CWORD; ++i)); do\n"
                       "        case ${COMP_WORDS[i]} in\n";
    std::string cases;
    for (const described_command& each : line.commands()) {
        cases += fmt::format("        {}) COMPREPLY=($(compgen -W '{} {}' -- \"$word\")) ;;\n", each.name,
                             all_spellings(each), all_spellings(common));
    }
    std::string names = names_of(line.commands());
    std::string pattern = names;
    for (char& c : pattern) c = c == ' ' ? '|' : c;
    text += fmt::format("            {}) command=${{COMP_WORDS[i]}}; break ;;\n        esac\n    done\n", pattern);
    text += "    case $command in\n" + cases;
    text +=
        fmt::format("        *) COMPREPLY=($(compgen -W '{} {}' -- \"$word\")) ;;\n    esac\n}}\ncomplete -F _bm bm\n",
                    names, all_spellings(common));
    return text;
}

std::string for_zsh(const command_line& line)
{
    const described_command common = line.common();
    std::string text =
        "#compdef bm\n# zsh completion of bm: bm completion zsh > a directory of $fpath, as _bm\n_bm() {\n"
        "    local -a commands options\n    commands=(\n";
    for (const described_command& each : line.commands())
        text += fmt::format("        '{}:{}'\n", each.name, quoted(each.about));
    text += "    )\n    case ${words[2]} in\n";
    for (const described_command& each : line.commands()) {
        text += fmt::format("        {}) options=({} {}) ;;\n", each.name, all_spellings(each), all_spellings(common));
    }
    text += fmt::format("        *) options=({}) ;;\n    esac\n", all_spellings(common));
    return text +
           "    if ((CURRENT == 2)); then _describe command commands; fi\n    compadd -- $options\n}\n_bm \"$@\"\n";
}

std::string fish_option(const described_option& option, const std::string& condition)
{
    std::string text = "complete -c bm" + condition;
    for (const std::string& name : option.long_names) text += " -l " + name;
    for (const std::string& name : option.short_names) text += " -s " + name;
    return text + fmt::format(" -d '{}'\n", quoted(option.about));
}

std::string for_fish(const command_line& line)
{
    const described_command common = line.common();
    std::string text = "# fish completion of bm: bm completion fish > ~/.config/fish/completions/bm.fish\n"
                       "complete -c bm -f\n";
    for (const described_command& each : line.commands()) {
        text += fmt::format("complete -c bm -n __fish_use_subcommand -a {} -d '{}'\n", each.name, quoted(each.about));
        for (const described_option& option : each.options) {
            if (!spellings(option).empty())
                text += fish_option(option, fmt::format(" -n '__fish_seen_subcommand_from {}'", each.name));
        }
    }
    for (const described_option& option : common.options) {
        if (!spellings(option).empty()) text += fish_option(option, "");
    }
    return text;
}

} // namespace

void add_completion(command_line& line)
{
    line.add<completion_options>(
        "completion", "what a shell needs to complete this command",
        [](arguments& app, completion_options& options) {
            app.option("SHELL", options.shell, "bash, zsh or fish").required().one_of({"bash", "zsh", "fish"});
        },
        [&line](const common_options& common, const completion_options& options) {
            const std::string script = options.shell == "bash"  ? for_bash(line)
                                       : options.shell == "zsh" ? for_zsh(line)
                                                                : for_fish(line);
            if (common.json) {
                json shown = document("completion");
                shown["shell"] = options.shell;
                shown["script"] = script;
                print_document(shown);
            } else {
                print(script);
            }
            return exit_status::fine;
        });
}

} // namespace bm
