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
std::vector<std::string> spellings(const CLI::Option& option)
{
    std::vector<std::string> all;
    for (const std::string& name : option.get_lnames()) all.push_back("--" + name);
    for (const std::string& name : option.get_snames()) all.push_back("-" + name);
    return all;
}

std::string all_spellings(const CLI::App& app)
{
    std::string text;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : spellings(*option)) text += (text.empty() ? "" : " ") + name;
    }
    return text;
}

std::vector<const CLI::App*> commands_of(const CLI::App& app)
{
    return app.get_subcommands([](const CLI::App*) { return true; });
}

std::string names_of(const std::vector<const CLI::App*>& commands)
{
    std::string text;
    for (const CLI::App* each : commands) text += (text.empty() ? "" : " ") + each->get_name();
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

std::string for_bash(const CLI::App& app)
{
    std::string text = "# bash completion of bm: bm completion bash > /etc/bash_completion.d/bm\n_bm() {\n"
                       "    local word=${COMP_WORDS[COMP_CWORD]} command= i\n"
                       "    for ((i = 1; i < COMP_CWORD; ++i)); do\n"
                       "        case ${COMP_WORDS[i]} in\n";
    std::string cases;
    for (const CLI::App* each : commands_of(app)) {
        cases += fmt::format("        {}) COMPREPLY=($(compgen -W '{} {}' -- \"$word\")) ;;\n", each->get_name(),
                             all_spellings(*each), all_spellings(app));
    }
    std::string names = names_of(commands_of(app));
    std::string pattern = names;
    for (char& c : pattern) c = c == ' ' ? '|' : c;
    text += fmt::format("            {}) command=${{COMP_WORDS[i]}}; break ;;\n        esac\n    done\n", pattern);
    text += "    case $command in\n" + cases;
    text +=
        fmt::format("        *) COMPREPLY=($(compgen -W '{} {}' -- \"$word\")) ;;\n    esac\n}}\ncomplete -F _bm bm\n",
                    names, all_spellings(app));
    return text;
}

std::string for_zsh(const CLI::App& app)
{
    std::string text =
        "#compdef bm\n# zsh completion of bm: bm completion zsh > a directory of $fpath, as _bm\n_bm() {\n"
        "    local -a commands options\n    commands=(\n";
    for (const CLI::App* each : commands_of(app))
        text += fmt::format("        '{}:{}'\n", each->get_name(), quoted(each->get_description()));
    text += "    )\n    case ${words[2]} in\n";
    for (const CLI::App* each : commands_of(app)) {
        text +=
            fmt::format("        {}) options=({} {}) ;;\n", each->get_name(), all_spellings(*each), all_spellings(app));
    }
    text += fmt::format("        *) options=({}) ;;\n    esac\n", all_spellings(app));
    return text +
           "    if ((CURRENT == 2)); then _describe command commands; fi\n    compadd -- $options\n}\n_bm \"$@\"\n";
}

std::string fish_option(const CLI::Option& option, const std::string& condition)
{
    std::string text = "complete -c bm" + condition;
    for (const std::string& name : option.get_lnames()) text += " -l " + name;
    for (const std::string& name : option.get_snames()) text += " -s " + name;
    return text + fmt::format(" -d '{}'\n", quoted(option.get_description()));
}

std::string for_fish(const CLI::App& app)
{
    std::string text = "# fish completion of bm: bm completion fish > ~/.config/fish/completions/bm.fish\n"
                       "complete -c bm -f\n";
    for (const CLI::App* each : commands_of(app)) {
        text += fmt::format("complete -c bm -n __fish_use_subcommand -a {} -d '{}'\n", each->get_name(),
                            quoted(each->get_description()));
        for (const CLI::Option* option : each->get_options()) {
            if (!spellings(*option).empty())
                text += fish_option(*option, fmt::format(" -n '__fish_seen_subcommand_from {}'", each->get_name()));
        }
    }
    for (const CLI::Option* option : app.get_options()) {
        if (!spellings(*option).empty()) text += fish_option(*option, "");
    }
    return text;
}

} // namespace

void add_completion(command_line& line)
{
    line.add<completion_options>(
        "completion", "what a shell needs to complete this command",
        [](CLI::App& app, completion_options& options) {
            app.add_option("SHELL", options.shell, "bash, zsh or fish")
                ->required()
                ->check(CLI::IsMember({"bash", "zsh", "fish"}))
                ->type_name("bash|zsh|fish");
        },
        [&line](const common_options& common, const completion_options& options) {
            const CLI::App& app = line.parser();
            const std::string script = options.shell == "bash"  ? for_bash(app)
                                       : options.shell == "zsh" ? for_zsh(app)
                                                                : for_fish(app);
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
