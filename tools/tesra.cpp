// tesra: libtesra_common on the command line.

#include <dlfcn.h>
#include <openssl/ui.h>
#include <platform_log.h>
#include <tesra_common.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <clocale>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <iomanip>
#include <iostream>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

constexpr const char *why = " (--log 2 tells why)";

// Whether the lines of tesra_dump go to standard output instead of the platform log.
bool dump_to_stdout = false;

// One line for standard error, and exit status 1.
struct refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

using file_ptr = std::unique_ptr<FILE, decltype([](FILE *file) { fclose(file); })>;
template <class type>
using heap_ptr = std::unique_ptr<type, decltype([](type *block) { free(block); })>;
using record_ptr =
    std::unique_ptr<tesra_cert_data,
                    decltype([](tesra_cert_data *data) { tesra_free_cert_data(data); })>;

constexpr struct {
    const char *key;
    const char *title;
    char *tesra_cert_data::*text;
} fields[] = {
    {"serial_number", "Serial number", &tesra_cert_data::serial_number},
    {"not_before", "Valid from", &tesra_cert_data::not_before},
    {"not_after", "Valid to", &tesra_cert_data::not_after},
    {"issuer_country", "Issuer country", &tesra_cert_data::issuer_country},
    {"issuer_state", "Issuer state", &tesra_cert_data::issuer_state},
    {"issuer_locality", "Issuer locality", &tesra_cert_data::issuer_locality},
    {"issuer_org", "Issuer org", &tesra_cert_data::issuer_org},
    {"issuer_org_unit", "Issuer org unit", &tesra_cert_data::issuer_org_unit},
    {"issuer_common_name", "Issuer common name", &tesra_cert_data::issuer_common_name},
    {"subject_country", "Subject country", &tesra_cert_data::subject_country},
    {"subject_state", "Subject state", &tesra_cert_data::subject_state},
    {"subject_locality", "Subject locality", &tesra_cert_data::subject_locality},
    {"subject_org", "Subject org", &tesra_cert_data::subject_org},
    {"subject_org_unit", "Subject org unit", &tesra_cert_data::subject_org_unit},
    {"subject_common_name", "Subject common name", &tesra_cert_data::subject_common_name},
};

// Characters that reorder the text around them can make one name look like another.
bool reorders_text(wchar_t character) {
    return character == 0x061C || character == 0x200E || character == 0x200F ||
           (character >= 0x202A && character <= 0x202E) ||
           (character >= 0x2066 && character <= 0x2069);
}

// UTF-8 text as it can be shown on a terminal. The backslash is escaped too, so that no text can
// pretend to hold an escaped character.
std::string escaped(std::string_view text) {
    std::string shown;
    std::mbstate_t state = {};
    while (!text.empty()) {
        wchar_t character = 0;
        const size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
        char escape[16];
        if (length > text.size()) {
            snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned char>(text[0]));
            state = {};
        } else if (!std::iswprint(static_cast<std::wint_t>(character)) ||
                   reorders_text(character)) {
            snprintf(escape, sizeof escape, "\\u{%X}", static_cast<unsigned>(character));
        } else {
            snprintf(escape, sizeof escape, "%s%.*s", character == L'\\' ? "\\" : "",
                     static_cast<int>(length), text.data());
        }
        shown += escape;
        text.remove_prefix(length > text.size() || length == 0 ? 1 : length);
    }
    return shown;
}

struct input {
    std::string name;
    std::string bytes;

    uint32_t length() const {
        return static_cast<uint32_t>(bytes.size());
    }
};

// The library takes no chain of 2^31 bytes or more, so no more than that is read.
input read_input(const std::string &path) {
    constexpr size_t most = std::numeric_limits<int32_t>::max();
    input whole = {path == "-" ? "standard input" : escaped(path), ""};
    const file_ptr file(path == "-" ? stdin : fopen(path.c_str(), "rb"));
    char chunk[65536];
    size_t got = 1;
    while (file != nullptr && got > 0 && whole.bytes.size() <= most) {
        got = fread(chunk, 1, sizeof chunk, file.get());
        whole.bytes.append(chunk, got);
    }
    if (file == nullptr || ferror(file.get()) != 0) {
        throw refusal(whole.name + ": " + strerror(errno));
    }
    if (whole.bytes.size() > most) {
        throw refusal(whole.name + ": 2 GiB or larger");
    }
    return whole;
}

const uint8_t *bytes_of(const input &data) {
    return reinterpret_cast<const uint8_t *>(data.bytes.data());
}

uint32_t count_certificates(const input &chain) {
    const uint32_t certificates = tesra_get_cert_count(chain.bytes.data(), chain.length());
    if (certificates == 0) {
        throw refusal(chain.name + ": not a readable certificate chain" + why);
    }
    return certificates;
}

record_ptr get_certificate(const input &chain, int index) {
    record_ptr data(tesra_get_cert_data(chain.bytes.data(), chain.length(), index));
    if (data == nullptr) {
        throw refusal(chain.name + ": no readable certificate at index " + std::to_string(index) +
                      why);
    }
    return data;
}

nlohmann::ordered_json json_of(const tesra_cert_data &data) {
    nlohmann::ordered_json object;
    for (const auto &field : fields) {
        object[field.key] = data.*field.text;
    }
    return object;
}

std::string text_of(const tesra_cert_data &data, int index) {
    std::ostringstream text;
    text << (index == -1 ? "Last certificate" : "Certificate " + std::to_string(index)) << '\n';
    for (const auto &field : fields) {
        const std::string value = escaped(data.*field.text);
        text << "  " << std::left << std::setw(value.empty() ? 0 : 20) << field.title << value
             << '\n';
    }
    return text.str();
}

// Nothing is printed before every certificate asked for has been read.
void show(const input &chain, const std::optional<int> &index, bool as_json) {
    const int first = index.value_or(0);
    const int last = index ? first : static_cast<int>(count_certificates(chain)) - 1;
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    std::string text;
    for (int at = first; at <= last; ++at) {
        const record_ptr data = get_certificate(chain, at);
        if (as_json) {
            list.push_back(json_of(*data));
        } else {
            text += (at == first ? "" : "\n") + text_of(*data, at);
        }
    }
    if (as_json) {
        // ASCII output: JSON's own escapes then cover every character that acts on a terminal.
        text = (index ? list[0] : list)
                   .dump(2, ' ', true, nlohmann::ordered_json::error_handler_t::replace) +
               '\n';
    }
    std::cout << text;
}

// tesra_trace does not tell whether a line arrived, so the tool looks first.
void check_trace_file() {
    if (file_ptr(fopen(TESRA_TRACE_FILE, "a+")) == nullptr) {
        throw refusal(std::string(TESRA_TRACE_FILE ": ") + strerror(errno));
    }
}

void trace(const std::string &message) {
    check_trace_file();
    tesra_trace(4, "tesra", __LINE__, "%s\n", message.c_str());
}

// A line of the trace file has at most 511 characters, its header included.
std::string check_message(const std::string &message) {
    const bool fits = message.size() <= 400 && message.find('\n') == std::string::npos;
    return fits ? "" : "must be one line of at most 400 bytes";
}

void base64_encode(const input &data) {
    char *text = nullptr;
    if (tesra_base64_encode(bytes_of(data), data.bytes.size(), &text) != 0) {
        throw refusal(data.name + ": cannot be encoded" + why);
    }
    std::cout << heap_ptr<char>(text).get() << '\n';
}

void hex_encode(const input &data) {
    uint32_t length = 0;
    const heap_ptr<char> text(tesra_hex_encode(bytes_of(data), data.length(), &length));
    if (text == nullptr) {
        throw refusal(data.name + ": cannot be encoded" + why);
    }
    std::cout << text.get() << '\n';
}

void decode(const input &text, decltype(tesra_hex_decode) decoder, const char *form) {
    uint32_t length = 0;
    const heap_ptr<uint8_t> bytes(decoder(text.bytes.data(), text.length(), &length));
    if (bytes == nullptr) {
        throw refusal(text.name + ": not " + form + why);
    }
    std::cout.write(reinterpret_cast<const char *>(bytes.get()), length);
}

void dump(const input &data, const std::string &label, bool to_trace) {
    if (data.bytes.empty()) {
        throw refusal(data.name + ": nothing to show");
    }
    if (to_trace) {
        check_trace_file();
    }
    dump_to_stdout = !to_trace;
    tesra_dump(to_trace ? TESRA_DUMP_TRACE : TESRA_DUMP_LOG, label.c_str(), bytes_of(data),
               data.length());
    dump_to_stdout = false;
}

// Results are an exit status; exceptions are refusals.
int run(int argc, char **argv) {
    CLI::App app("Certificate chains, Base64 and hexadecimal, hex dumps and the trace file of "
                 "libtesra_common.",
                 "tesra");
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", TESRA_VERSION);
    app.add_option_function<int>(
           "--log",
           [](int level) { setenv("PLATFORM_LOG_STDERR", std::to_string(level).c_str(), 1); },
           "Show the platform log on standard error up to this level: 2 errors, 3 warnings, "
           "4 information, 11 debugging")
        ->type_name("LEVEL");

    std::string file = "-";
    const auto add_command = [&file](CLI::App &parent, const char *name, const char *purpose) {
        CLI::App *command = parent.add_subcommand(name, purpose);
        command->add_option("FILE", file, "Input; - or nothing is standard input")->type_name("");
        return command;
    };

    add_command(app, "count", "Print the number of certificates of a PEM chain")->callback([&] {
        std::cout << count_certificates(read_input(file)) << '\n';
    });

    std::optional<int> index;
    bool as_json = false;
    CLI::App *show_command = add_command(app, "show", "Print the texts of its certificates");
    show_command
        ->add_option("--index", index, "Only the one at this position, from 0; -1 is the last")
        ->type_name("N")
        ->check(CLI::Range(-1, std::numeric_limits<int>::max()));
    show_command->add_flag("--json", as_json, "Print JSON");
    show_command->callback([&] { show(read_input(file), index, as_json); });

    CLI::App *base64 = app.add_subcommand("base64", "Convert to or from Base64 text");
    base64->require_subcommand(1);
    add_command(*base64, "encode", "Bytes to text")->callback([&] {
        base64_encode(read_input(file));
    });
    add_command(*base64, "decode", "Text to bytes")->callback([&] {
        decode(read_input(file), tesra_base64_decode, "Base64 text");
    });

    CLI::App *hex = app.add_subcommand("hex", "Convert to or from hexadecimal text");
    hex->require_subcommand(1);
    add_command(*hex, "encode", "Bytes to text")->callback([&] { hex_encode(read_input(file)); });
    add_command(*hex, "decode", "Text to bytes")->callback([&] {
        decode(read_input(file), tesra_hex_decode, "hexadecimal text");
    });

    std::string label;
    bool to_trace = false;
    CLI::App *dump_command = add_command(app, "dump", "Show bytes in hexadecimal, 16 to a line");
    dump_command->add_option("--label", label, "Text in front of every line")->type_name("TEXT");
    dump_command->add_flag("--trace", to_trace, "Append the lines to " TESRA_TRACE_FILE);
    dump_command->callback([&] { dump(read_input(file), label, to_trace); });

    std::string message;
    CLI::App *trace_command = app.add_subcommand("trace", "Add a line to " TESRA_TRACE_FILE);
    trace_command->add_option("MESSAGE", message, "The line, at most 400 bytes")
        ->type_name("")
        ->required()
        ->check(check_message);
    trace_command->callback([&] { trace(message); });

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    if (!std::cout.flush()) {
        throw refusal("standard output: cannot be written");
    }
    return 0;
}

} // namespace

// The library's reports come through here on their way to the platform log, so that the lines of a
// dump can go to standard output instead.
extern "C" int platform_log_write(int level, int component, const char *format, ...) {
    va_list args;
    va_start(args, format);
    char *raw_text = nullptr;
    const int length = vasprintf(&raw_text, format, args);
    va_end(args);
    if (length < 0) {
        return -1;
    }
    const heap_ptr<char> text(raw_text);
    if (dump_to_stdout && level == 4) {
        // "<file>:<line>:" in front is the library's own position.
        std::cout << strchr(strchr(raw_text, ':') + 1, ':') + 1;
        return 0;
    }
    static const auto next =
        reinterpret_cast<decltype(&platform_log_write)>(dlsym(RTLD_NEXT, "platform_log_write"));
    return next == nullptr ? -1 : next(level, component, "%s", text.get());
}

int main(int argc, char **argv) {
    try {
        // Names are UTF-8 whatever the user's locale.
        setlocale(LC_CTYPE, "C.UTF-8");
        // A certificate's PEM block may say that it is encrypted. Nobody is asked for a pass
        // phrase.
        UI_set_default_method(UI_null());
        return run(argc, argv);
    } catch (const std::exception &error) {
        std::cerr << "tesra: " << error.what() << '\n';
        return 1;
    }
}
