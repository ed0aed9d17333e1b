#include "velorixctl/VXCtlCommandLine.h"

#include <charconv>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VXHVersion.h"
#include "phone/VXPhone.h"
#include "protocol/PZNumberText.h"
#include "protocol/VXTrackpadCommand.h"
#include "transport/PZException.h"

namespace {

using Milliseconds = std::chrono::milliseconds;

// Exit statuses.
constexpr int kExitOK = 0;
constexpr int kExitErrorAnswer = 1;
constexpr int kExitUsage = 2;
constexpr int kExitConnection = 3;
constexpr int kExitNoAnswer = 4;
constexpr int kExitFile = 5;

constexpr const char* kUsage = R"(Usage: velorixctl [OPTIONS] COMMAND [ARGUMENTS...]

A command-line phone: connects to a VelorixHelper server, runs the handshake as a phone app does,
runs one command and prints the server's answers as JSON lines (error answers included). Strings are
shown decoded; the raw bytes of files and screenshots are written to FILE and shown as
"stream":{"bytes":N}.

Options (before COMMAND):
  --host H            server address (default 127.0.0.1)
  --port N            server port (default 2846)
  --password P        connection password, sent when the server asks for one
  --xml               speak the XML encoding instead of JSON
  --app NAME          application name told to the server (default "Velorix")
  --app-version V     application version told to the server (default "3.0")
  --device NAME       device name told to the server (default "velorixctl")
  --timeout MS        how long to wait for the connection, the handshake and each answer (default 10000)
  --wait MS           how long a command waits for an error answer (default 500)
  --pid PID           target process of key, type and launch commands (default -1, the computer itself)
  --show-handshake    print the messages of the handshake too
  -h, --help          this text
  --version           the version of velorixctl

Requests (the answer is printed; no answer within --timeout exits with status 4):
  info SUBJECT                     an information: os, vx, protocol, volume, brightness, userName,
                                   homeDirectory, fullUserName ("device" is never answered: waits --wait)
  processlist [uielement|applications|dock]
                                   processes with windows (default), installed applications, favourites
  applist                          installed applications
  directory PATH                   the entries of a folder (JSON only)
  screenshot FILE [--rect X;Y;W;H] [--size W;H]
                                   a JPEG of a screen rectangle, written to FILE (JSON only); W and H 0
                                   mean the rest of the screen
  icon app NAME FILE [--size W;H]  the PNG icon of an application
  icon process PID FILE [--size W;H]
                                   the PNG icon of a running process
  icon file PATH FILE [--size W;H] the TIFF icon of a file type ("DIR" for a folder)

Commands (the server answers only on failure: each waits --wait milliseconds for an error answer,
then exits 0):
  key INSTRUCTION                  one key: modifiers "#1" shift, "#2" control, "#3" option,
                                   "#4" command, then the key ("#4 c", "return", "F5", "a")
  type TEXT                        one key command per character (space, tab and newline by name)
  launch NAME                      start an application by name (or '"" PATH' to open a path)
  focus PID                        bring a process to the front
  volume V                         set the volume, 0.0 to 1.0
  brightness V                     set the brightness, 0.0 to 1.0
  special WORD                     sleep, shutdown or restart
  trackpad [--touch N] [--fingers N] [--tap-count N] [--shift X;Y] [--rotation N] [--zoom N]
                                   one trackpad event (touch 1 = finger down, 0 = finger up);
                                   example: move by 10;5 with one finger: --fingers 1 --shift 10;5

Watching:
  watch [SECONDS]                  ask for the process list once (so its changes are pushed too) and
                                   print every message for SECONDS (default: until interrupted)

Exit status: 0 done, 1 the server answered with an error, 2 wrong usage, 3 the connection failed,
was lost or the handshake was refused, 4 no answer in time, 5 FILE could not be written.
)";

struct Options {
    std::string host = "127.0.0.1";
    int port = 2846;
    VXPhone::Identity identity;
    Milliseconds timeout{10000};
    Milliseconds wait{500};
    std::int64_t pid = -1;
    bool showHandshake = false;
};

class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

template <typename T> T parseNumber(std::string_view text, const char* what) {
    T value{};
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || result.ec != std::errc() || result.ptr != text.data() + text.size()) {
        throw UsageError(std::string("not a number for ") + what + ": " + std::string(text));
    }
    return value;
}

// "a;b;..." with count numbers, checked and written back in the C locale as the phones do ("%f").
std::string parseNumberList(std::string_view text, std::size_t count, const char* what) {
    std::string out;
    std::size_t pieces = 0;
    while (true) {
        const auto semicolon = text.find(';');
        const auto piece = text.substr(0, semicolon);
        if (!out.empty()) {
            out.push_back(';');
        }
        PZNumberText::appendFixed(out, parseNumber<double>(piece, what), 6);
        ++pieces;
        if (semicolon == std::string_view::npos) {
            break;
        }
        text.remove_prefix(semicolon + 1);
    }
    if (pieces != count) {
        throw UsageError(std::string(what) + " needs " + std::to_string(count) + " numbers separated by ';'");
    }
    return out;
}

void print(const VXPhoneMessage& message) {
    std::cout << message.toJSON() << '\n' << std::flush;
}

// The answer to one request: the messages, or why there is none.
struct Answer {
    std::vector<VXPhoneMessage> messages;
    int status = kExitOK;
};

// Waits for the message that answers a request (match), or an error; pushes that arrive meanwhile are
// left out. An XML list ("NewProcessesList" or "NewApplicationsList" with a count) takes its elements too.
Answer awaitAnswer(VXPhone& phone, const std::function<bool(const VXPhoneMessage&)>& match,
                   Milliseconds timeout) {
    Answer answer;
    auto message =
        phone.receiveMatching([&](const VXPhoneMessage& m) { return m.isError() || match(m); }, timeout);
    if (!message) {
        answer.status = phone.state() == VXPhone::State::Open ? kExitNoAnswer : kExitConnection;
        return answer;
    }
    answer.status = message->isError() ? kExitErrorAnswer : kExitOK;
    const bool xmlList = message->kind == "info" &&
                         (message->type == "NewProcessesList" || message->type == "NewApplicationsList");
    const auto count = xmlList ? message->number("information").value_or(0) : 0;
    answer.messages.push_back(std::move(*message));
    for (double i = 0; i < count; ++i) {
        auto element =
            phone.receiveMatching([](const VXPhoneMessage& m) { return m.kind == "process"; }, timeout);
        if (!element) {
            answer.status = phone.state() == VXPhone::State::Open ? kExitNoAnswer : kExitConnection;
            break;
        }
        answer.messages.push_back(std::move(*element));
    }
    return answer;
}

int report(const Answer& answer, const VXPhone& phone) {
    for (const auto& message : answer.messages) {
        print(message);
    }
    if (answer.status == kExitNoAnswer) {
        std::cerr << "velorixctl: no answer in time\n";
    } else if (answer.status == kExitConnection) {
        std::cerr << "velorixctl: connection lost" << (phone.failure().empty() ? "" : ": " + phone.failure())
                  << '\n';
    }
    return answer.status;
}

// Sends nothing more and waits for an error answer to the commands just sent.
int awaitCommandResult(VXPhone& phone, Milliseconds wait) {
    auto error = phone.receiveMatching([](const VXPhoneMessage& m) { return m.isError(); }, wait);
    if (error) {
        print(*error);
        return kExitErrorAnswer;
    }
    if (phone.state() != VXPhone::State::Open) {
        std::cerr << "velorixctl: connection lost" << (phone.failure().empty() ? "" : ": " + phone.failure())
                  << '\n';
        return kExitConnection;
    }
    return kExitOK;
}

int writeStream(const VXPhoneMessage& message, const std::string& path) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(message.stream.data()),
               static_cast<std::streamsize>(message.stream.size()));
    file.close();
    if (!file) {
        std::cerr << "velorixctl: cannot write " << path << '\n';
        return kExitFile;
    }
    return kExitOK;
}

// Splits text into UTF-8 characters.
std::vector<std::string> characters(std::string_view text) {
    std::vector<std::string> out;
    std::size_t i = 0;
    while (i < text.size()) {
        const auto lead = static_cast<unsigned char>(text[i]);
        std::size_t n = lead < 0x80           ? 1
                        : (lead >> 5) == 0x6  ? 2
                        : (lead >> 4) == 0xE  ? 3
                        : (lead >> 3) == 0x1E ? 4
                                              : 1;
        n = std::min(n, text.size() - i);
        out.emplace_back(text.substr(i, n));
        i += n;
    }
    return out;
}

std::string keyOfCharacter(const std::string& c) {
    if (c == " ") {
        return "space";
    }
    if (c == "\n") {
        return "return";
    }
    if (c == "\t") {
        return "tab";
    }
    return c;
}

// Takes "--name value" pairs from args (in any order) into values; the rest stays in args.
std::vector<std::pair<std::string, std::string>> takeOptions(std::vector<std::string>& args,
                                                             const std::vector<std::string>& names) {
    std::vector<std::pair<std::string, std::string>> found;
    std::vector<std::string> rest;
    for (std::size_t i = 0; i < args.size(); ++i) {
        bool known = false;
        for (const auto& name : names) {
            if (args[i] == name) {
                if (i + 1 >= args.size()) {
                    throw UsageError(name + " needs a value");
                }
                found.emplace_back(name, args[++i]);
                known = true;
                break;
            }
        }
        if (!known) {
            if (args[i].rfind("--", 0) == 0) {
                throw UsageError("unknown option " + args[i]);
            }
            rest.push_back(args[i]);
        }
    }
    args = std::move(rest);
    return found;
}

void expectArguments(const std::vector<std::string>& args, std::size_t min, std::size_t max,
                     const char* command) {
    if (args.size() < min || args.size() > max) {
        throw UsageError(std::string("wrong number of arguments for ") + command);
    }
}

// Checks the command line of one command before anything is sent; throws UsageError.
using Runner = std::function<int(VXPhone&)>;

Runner makeRunner(const std::string& command, std::vector<std::string> args, const Options& options) {
    const auto timeout = options.timeout;
    const auto wait = options.wait;
    const auto pid = options.pid;

    if (command == "info") {
        expectArguments(args, 1, 1, "info");
        const auto subject = args[0];
        return [=](VXPhone& phone) {
            phone.sendRequest("info", subject);
            if (subject == "device") {
                return awaitCommandResult(phone, wait);
            }
            return report(awaitAnswer(
                              phone, [&](const VXPhoneMessage& m) { return m.isInfo(subject); }, timeout),
                          phone);
        };
    }
    if (command == "processlist" || command == "applist") {
        std::string which = "uielement";
        if (command == "processlist") {
            expectArguments(args, 0, 1, "processlist");
            which = args.empty() ? which : args[0];
        } else {
            expectArguments(args, 0, 0, "applist");
            which = "applist";
        }
        std::string text;
        if (which == "uielement") {
            text = "UIElement";
        } else if (which == "applications") {
            text = "Applications";
        } else if (which == "dock") {
            text = "Dock";
        } else if (which != "applist") {
            throw UsageError("processlist takes uielement, applications or dock");
        }
        return [=](VXPhone& phone) {
            if (which == "applist") {
                phone.sendRequest("appList");
            } else {
                phone.sendRequest("processList", text);
            }
            return report(awaitAnswer(
                              phone,
                              [](const VXPhoneMessage& m) {
                                  return m.kind == "processList" ||
                                         (m.kind == "info" &&
                                          (m.type == "NewProcessesList" || m.type == "NewApplicationsList"));
                              },
                              timeout),
                          phone);
        };
    }
    if (command == "directory") {
        expectArguments(args, 1, 1, "directory");
        const auto path = args[0];
        return [=](VXPhone& phone) {
            phone.sendRequest("directory", path);
            return report(awaitAnswer(
                              phone, [](const VXPhoneMessage& m) { return m.kind == "directory"; }, timeout),
                          phone);
        };
    }
    if (command == "screenshot") {
        PZDictionary arguments;
        for (const auto& [name, value] : takeOptions(args, {"--rect", "--size"})) {
            if (name == "--rect") {
                arguments.set("rect", PZValue(parseNumberList(value, 4, "--rect")));
            } else {
                arguments.set("size", PZValue(parseNumberList(value, 2, "--size")));
            }
        }
        expectArguments(args, 1, 1, "screenshot");
        const auto file = args[0];
        return [=](VXPhone& phone) {
            phone.sendRequest("screenshot", std::nullopt,
                              arguments.empty() ? std::nullopt : std::optional<PZDictionary>(arguments));
            auto answer = awaitAnswer(
                phone, [](const VXPhoneMessage& m) { return m.kind == "screenshot"; }, timeout);
            if (answer.status == kExitOK && writeStream(answer.messages.front(), file) != kExitOK) {
                report(answer, phone);
                return kExitFile;
            }
            return report(answer, phone);
        };
    }
    if (command == "icon") {
        PZDictionary arguments;
        for (const auto& [name, value] : takeOptions(args, {"--size"})) {
            arguments.set("size", PZValue(parseNumberList(value, 2, "--size")));
        }
        expectArguments(args, 3, 3, "icon");
        const auto kind = args[0];
        const auto subject = args[1];
        const auto file = args[2];
        std::string type;
        if (kind == "app") {
            type = "appIcon";
        } else if (kind == "process") {
            parseNumber<std::int64_t>(subject, "icon process");
            type = "processIcon";
        } else if (kind == "file") {
            type = "fileIcon";
        } else {
            throw UsageError("icon takes app, process or file");
        }
        return [=](VXPhone& phone) {
            phone.sendRequest(type, subject,
                              arguments.empty() ? std::nullopt : std::optional<PZDictionary>(arguments));
            auto answer = awaitAnswer(
                phone, [](const VXPhoneMessage& m) { return m.kind == "file"; }, timeout);
            if (answer.status == kExitOK && writeStream(answer.messages.front(), file) != kExitOK) {
                report(answer, phone);
                return kExitFile;
            }
            return report(answer, phone);
        };
    }
    if (command == "key" || command == "type") {
        expectArguments(args, 1, 1, command.c_str());
        std::vector<std::string> keys;
        if (command == "key") {
            keys.push_back(args[0]);
        } else {
            for (const auto& c : characters(args[0])) {
                keys.push_back(keyOfCharacter(c));
            }
        }
        return [=](VXPhone& phone) {
            for (const auto& key : keys) {
                phone.sendCommand("keyboard", key, pid);
            }
            return awaitCommandResult(phone, wait);
        };
    }
    if (command == "launch" || command == "special") {
        expectArguments(args, 1, 1, command.c_str());
        const auto instruction = args[0];
        return [=](VXPhone& phone) {
            phone.sendCommand(command, instruction, pid);
            return awaitCommandResult(phone, wait);
        };
    }
    if (command == "focus") {
        expectArguments(args, 1, 1, "focus");
        const auto target = parseNumber<std::int64_t>(args[0], "focus");
        return [=](VXPhone& phone) {
            phone.sendCommand("focus", std::nullopt, target);
            return awaitCommandResult(phone, wait);
        };
    }
    if (command == "volume" || command == "brightness") {
        expectArguments(args, 1, 1, command.c_str());
        const auto value = PZNumberText::formatFixed(parseNumber<double>(args[0], command.c_str()), 6);
        return [=](VXPhone& phone) {
            phone.sendCommand(command, value, pid);
            return awaitCommandResult(phone, wait);
        };
    }
    if (command == "trackpad") {
        auto pad = std::make_shared<VXTrackpadCommand>();
        for (const auto& [name, value] :
             takeOptions(args, {"--touch", "--fingers", "--tap-count", "--shift", "--rotation", "--zoom"})) {
            if (name == "--touch") {
                pad->setTouchState(parseNumber<std::int32_t>(value, "--touch"));
            } else if (name == "--fingers") {
                pad->setFingers(parseNumber<std::int16_t>(value, "--fingers"));
            } else if (name == "--tap-count") {
                pad->setTapCount(parseNumber<std::int16_t>(value, "--tap-count"));
            } else if (name == "--rotation") {
                pad->setRotation(parseNumber<std::int16_t>(value, "--rotation"));
            } else if (name == "--zoom") {
                pad->setZoom(parseNumber<std::int16_t>(value, "--zoom"));
            } else {
                const auto semicolon = value.find(';');
                if (semicolon == std::string::npos) {
                    throw UsageError("--shift needs X;Y");
                }
                pad->setShift(
                    {parseNumber<double>(std::string_view(value).substr(0, semicolon), "--shift"),
                     parseNumber<double>(std::string_view(value).substr(semicolon + 1), "--shift")});
            }
        }
        expectArguments(args, 0, 0, "trackpad");
        return [=](VXPhone& phone) {
            phone.send(*pad);
            return awaitCommandResult(phone, wait);
        };
    }
    if (command == "watch") {
        expectArguments(args, 0, 1, "watch");
        const std::optional<double> seconds =
            args.empty() ? std::nullopt : std::optional<double>(parseNumber<double>(args[0], "watch"));
        return [=](VXPhone& phone) {
            phone.sendRequest("processList", "UIElement");
            const auto deadline =
                std::chrono::steady_clock::now() +
                std::chrono::duration_cast<Milliseconds>(std::chrono::duration<double>(seconds.value_or(0)));
            while (!seconds || std::chrono::steady_clock::now() < deadline) {
                const auto step = seconds ? std::chrono::duration_cast<Milliseconds>(
                                                deadline - std::chrono::steady_clock::now())
                                          : Milliseconds(1000);
                auto message = phone.receive(std::max(step, Milliseconds(0)));
                if (message) {
                    print(*message);
                } else if (phone.state() != VXPhone::State::Open) {
                    std::cerr << "velorixctl: connection lost"
                              << (phone.failure().empty() ? "" : ": " + phone.failure()) << '\n';
                    return kExitConnection;
                }
            }
            return kExitOK;
        };
    }
    throw UsageError("unknown command " + command);
}

} // namespace

int VXCtlCommandLine::run(int argc, char** argv) {
    Options options;
    std::vector<std::string> args(argv + 1, argv + argc);
    std::size_t i = 0;
    Runner runner;
    try {
        const auto value = [&](const std::string& name) -> std::string {
            if (i + 1 >= args.size()) {
                throw UsageError(name + " needs a value");
            }
            return args[++i];
        };
        for (; i < args.size() && args[i].rfind("-", 0) == 0; ++i) {
            const auto& arg = args[i];
            if (arg == "-h" || arg == "--help") {
                std::cout << kUsage;
                return kExitOK;
            }
            if (arg == "--version") {
                std::cout << "velorixctl " << VXH_VERSION_STRING << '\n';
                return kExitOK;
            }
            if (arg == "--host") {
                options.host = value(arg);
            } else if (arg == "--port") {
                options.port = parseNumber<int>(value(arg), "--port");
            } else if (arg == "--password") {
                options.identity.password = value(arg);
            } else if (arg == "--xml") {
                options.identity.encoding = VXPhone::Encoding::XML;
            } else if (arg == "--app") {
                options.identity.app = value(arg);
            } else if (arg == "--app-version") {
                options.identity.version = value(arg);
            } else if (arg == "--device") {
                options.identity.device = value(arg);
            } else if (arg == "--timeout") {
                options.timeout = Milliseconds(parseNumber<int>(value(arg), "--timeout"));
            } else if (arg == "--wait") {
                options.wait = Milliseconds(parseNumber<int>(value(arg), "--wait"));
            } else if (arg == "--pid") {
                options.pid = parseNumber<std::int64_t>(value(arg), "--pid");
            } else if (arg == "--show-handshake") {
                options.showHandshake = true;
            } else {
                throw UsageError("unknown option " + arg);
            }
        }
        if (i >= args.size()) {
            throw UsageError("no command given");
        }
        runner = makeRunner(
            args[i], std::vector<std::string>(args.begin() + static_cast<std::ptrdiff_t>(i) + 1, args.end()),
            options);
    } catch (const UsageError& error) {
        std::cerr << "velorixctl: " << error.what() << "\n(velorixctl --help explains the commands)\n";
        return kExitUsage;
    }

    std::unique_ptr<VXPhone> phone;
    try {
        phone = VXPhone::connect(options.host, options.port, options.timeout);
        phone->handshake(options.identity, options.timeout);
    } catch (const PZException& error) {
        // The server's error (an incompatible application) is printed like any other answer.
        if (phone) {
            for (const auto& message : phone->handshakeMessages()) {
                if (options.showHandshake || message.isError()) {
                    print(message);
                }
            }
        }
        std::cerr << "velorixctl: " << error.reason() << '\n';
        return kExitConnection;
    }
    if (options.showHandshake) {
        for (const auto& message : phone->handshakeMessages()) {
            print(message);
        }
    }
    return runner(*phone);
}
