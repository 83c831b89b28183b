// tesra: libtesra_common on the command line.

#include "check.h"
#include "codecs.h"
#include "input.h"
#include "show.h"
#include "sinks.h"

#include <openssl/ui.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <clocale>
#include <iostream>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace {

struct arguments {
    std::vector<std::string> files;
    std::string file = "-";
    std::string index;
    std::string label;
    std::optional<std::string> message;
    bool as_json = false;
    bool is_lenient = false;
    bool to_trace = false;
    int status = 0;
};

std::optional<int> index_of(const std::string &text) {
    int index = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, index);
    if (text.empty()) {
        return std::nullopt;
    }
    if (error != std::errc() || stop != end || index < -1) {
        throw wrong_usage("--index: must be a position from 0, or -1 for the last certificate");
    }
    return index;
}

CLI::App *add_chain_command(CLI::App &app, arguments &given, const char *name,
                            const char *purpose) {
    CLI::App *command = app.add_subcommand(name, purpose);
    command->add_option("FILE", given.files, "PEM chains; - or nothing is standard input")
        ->type_name("");
    return command;
}

void add_chain_commands(CLI::App &app, arguments &given) {
    add_chain_command(app, given, "count", "Print the number of certificates of a PEM chain")
        ->callback([&] { given.status = count(given.files); });

    CLI::App *show_command =
        add_chain_command(app, given, "show", "Print the texts of its certificates");
    show_command
        ->add_option("--index", given.index,
                     "Only the one at this position, from 0; -1 is the last")
        ->type_name("N");
    show_command->add_flag("--json", given.as_json, "Print JSON");
    show_command->callback(
        [&] { given.status = show(given.files, index_of(given.index), given.as_json); });

    CLI::App *check_command = add_chain_command(
        app, given, "check", "Tell what each PEM block is, and what is wrong with the chain");
    check_command->add_flag("--json", given.as_json, "Print JSON");
    check_command->callback([&] { given.status = check(given.files, given.as_json); });
}

CLI::App *add_command(CLI::App &parent, arguments &given, const char *name, const char *purpose) {
    CLI::App *command = parent.add_subcommand(name, purpose);
    command->add_option("FILE", given.file, "Input; - or nothing is standard input")->type_name("");
    return command;
}

void add_codec_commands(CLI::App &app, arguments &given) {
    CLI::App *base64 = app.add_subcommand("base64", "Convert to or from Base64 text");
    base64->require_subcommand(1);
    add_command(*base64, given, "encode", "Bytes to text")->callback([&] {
        base64_encode(read_input(given.file));
    });
    add_command(*base64, given, "decode", "Text to bytes")->callback([&] {
        base64_decode(read_input(given.file));
    });

    CLI::App *hex = app.add_subcommand("hex", "Convert to or from hexadecimal text");
    hex->require_subcommand(1);
    add_command(*hex, given, "encode", "Bytes to text")->callback([&] {
        hex_encode(read_input(given.file));
    });
    CLI::App *hex_decode_command = add_command(
        *hex, given, "decode", "Text to bytes; with --lenient, all that the library takes");
    hex_decode_command->add_flag("--lenient", given.is_lenient,
                                 "Take what the library takes, such as 0x, signs and half pairs");
    hex_decode_command->callback([&] { hex_decode(read_input(given.file), given.is_lenient); });
}

void add_diagnostic_commands(CLI::App &app, arguments &given) {
    CLI::App *dump_command =
        add_command(app, given, "dump", "Show bytes in hexadecimal, 16 to a line");
    dump_command->add_option("--label", given.label, "Text in front of every line")
        ->type_name("TEXT");
    dump_command->add_flag("--trace", given.to_trace, "Append the lines to " TESRA_TRACE_FILE);
    dump_command->callback([&] { dump(read_input(given.file), given.label, given.to_trace); });

    CLI::App *trace_command = app.add_subcommand("trace", "Add a line to " TESRA_TRACE_FILE);
    trace_command->add_option("MESSAGE", given.message, "The line, at most 400 bytes")
        ->type_name("");
    trace_command->callback([&] {
        if (!given.message) {
            throw wrong_usage("trace: which MESSAGE?");
        }
        trace(*given.message);
    });
}

// CLI11 words its errors differently in each release.
std::string usage_fault(const CLI::App &app, const CLI::ParseError &error) {
    const std::vector<std::string> unknown = app.remaining(true);
    const auto commands = app.get_subcommands();
    const CLI::App *command = commands.empty() ? &app : commands[0];
    const bool lacks_command =
        command->get_subcommands().empty() && command->get_require_subcommand_min() > 0;
    if (!unknown.empty()) {
        const bool is_option = unknown[0].size() > 1 && unknown[0][0] == '-';
        return escaped(unknown[0]) + (is_option       ? ": no such option"
                                      : lacks_command ? ": no such command"
                                                      : ": one argument too many");
    }
    if (lacks_command) {
        return "which command? \"tesra help\" lists them";
    }
    const std::string words = error.what();
    return escaped(words.substr(0, words.find('\n')));
}

// The words of the command line from the last to the first, as CLI11 takes them.
std::vector<std::string> words_of(int argc, char **argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    if (!words.empty() && words[0] == "help") {
        words.erase(words.begin());
        words.push_back("--help");
    }
    std::reverse(words.begin(), words.end());
    return words;
}

// Returns the exit status; exceptions are refusals.
int run(int argc, char **argv) {
    arguments given;
    CLI::App app("Certificate chains, Base64 and hexadecimal, hex dumps and the trace file of "
                 "libtesra_common.",
                 "tesra");
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("-V,--version", TESRA_VERSION);
    app.add_option_function<std::string>(
           "--log", show_log,
           "Show the library's reports on standard error up to this level: 2 or error, 3 or "
           "warning, 4 or info, 11 or debug")
        ->type_name("LEVEL");
    add_chain_commands(app, given);
    add_codec_commands(app, given);
    add_diagnostic_commands(app, given);
    app.add_subcommand("help", "Show a summary of the tool, or of the command that follows");
    try {
        app.parse(words_of(argc, argv));
    } catch (const CLI::Success &success) {
        if (!app.remaining(true).empty()) {
            throw wrong_usage(usage_fault(app, success));
        }
        app.exit(success);
    } catch (const CLI::ParseError &error) {
        throw wrong_usage(usage_fault(app, error));
    }
    if (!std::cout.flush()) {
        throw refusal("standard output: cannot be written");
    }
    return given.status;
}

// A certificate's PEM block may say that it is encrypted. Nobody is asked for a pass phrase: no
// session to do so can be opened. UI_null() would do, but OpenSSL 3.0 and 3.1 crash on it in their
// early releases.
void ask_nobody() {
    UI_METHOD *const method = UI_create_method("nobody is asked");
    if (method == nullptr || UI_method_set_opener(method, [](UI *) { return 0; }) != 0) {
        throw std::bad_alloc();
    }
    UI_set_default_method(method);
}

} // namespace

int main(int argc, char **argv) {
    try {
        // Names are UTF-8 whatever the user's locale.
        setlocale(LC_CTYPE, "C.UTF-8");
        ask_nobody();
        return run(argc, argv);
    } catch (const wrong_usage &error) {
        complain(error.what());
        return 2;
    } catch (const std::exception &error) {
        complain(error.what());
        return 1;
    }
}
