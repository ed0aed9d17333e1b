#include "app/VXHCommandLine.h"

#include <QCoreApplication>
#include <QGuiApplication>

#include <charconv>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "VXHVersion.h"
#include "app/VXHManager.h"
#include "app/VXLogNotificationPoster.h"
#include "app/VXSignalWatcher.h"
#include "platform/qt/PZQtRunLoopBridge.h"
#include "platform/x11/X11Display.h"
#include "settings/VXConfigCommand.h"
#include "transport/PZLogger.h"
#include "transport/PZRunLoop.h"

namespace {

bool hasDisplay() {
    const char* display = std::getenv("DISPLAY");
    return display != nullptr && *display != 0;
}

int parsePort(const std::string& text) {
    int port = -1;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), port);
    if (text.empty() || result.ec != std::errc() || result.ptr != text.data() + text.size() || port < 0 ||
        port > 65535) {
        throw std::invalid_argument("--port needs a number from 0 to 65535, not \"" + text + "\"");
    }
    return port;
}

} // namespace

std::string VXHCommandLine::helpText() {
    return "Usage: velorixhelper [--headless] [--port N]\n"
           "       velorixhelper config list | get KEY | set KEY VALUE | unset KEY\n"
           "       velorixhelper --help | --version\n"
           "\n"
           "Lets the Velorix phone and tablet apps control this computer: they connect over the local\n"
           "network (TCP, advertised through DNS-SD as _VelorixServer._tcp), ask for information and\n"
           "screenshots, and type, click, launch applications and change the volume.\n"
           "\n"
           "  --headless   run without tray icon and windows. This version always runs headless, also\n"
           "               when a display is present; the tray icon and windows come in a later version.\n"
           "               Notifications are written to the log (standard error and syslog).\n"
           "  --port N     listen on port N for this run only; the stored \"socket port\" stays as it is\n"
           "               (0 takes any free port; the log names it)\n"
           "  config       read and write the preferences; \"velorixhelper config list\" shows every key\n"
           "               (for example: velorixhelper config set \"socket port\" 2847)\n"
           "  --help       this text\n"
           "  --version    the version\n"
           "\n"
           "The server stops cleanly on SIGINT (Ctrl+C) and SIGTERM. Exit status: 0 after a clean stop,\n"
           "1 when the port cannot be bound, 2 for a wrong command line.\n";
}

VXHCommandLine::Options VXHCommandLine::parse(const std::vector<std::string>& args) {
    Options options;
    if (!args.empty() && args[0] == "config") {
        options.config = std::vector<std::string>(args.begin() + 1, args.end());
        return options;
    }
    for (std::size_t i = 0; i < args.size(); ++i) {
        const auto& arg = args[i];
        if (arg == "-h" || arg == "--help") {
            options.help = true;
        } else if (arg == "--version") {
            options.version = true;
        } else if (arg == "--headless") {
            options.headless = true;
        } else if (arg == "--port") {
            if (i + 1 >= args.size()) {
                throw std::invalid_argument("--port needs a number");
            }
            options.port = parsePort(args[++i]);
        } else if (arg.rfind("--port=", 0) == 0) {
            options.port = parsePort(arg.substr(7));
        } else {
            throw std::invalid_argument("unknown argument \"" + arg + "\"");
        }
    }
    return options;
}

int VXHCommandLine::run(int argc, char** argv) {
    Options options;
    try {
        options = parse(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const std::invalid_argument& error) {
        std::cerr << "velorixhelper: " << error.what() << "\n(velorixhelper --help shows the usage)\n";
        return 2;
    }
    if (options.config) {
        return VXConfigCommand::run(*options.config, std::cout, std::cerr);
    }
    if (options.help) {
        std::cout << helpText();
        return 0;
    }
    if (options.version) {
        std::cout << "velorixhelper " << VXH_VERSION_STRING << '\n';
        return 0;
    }
    return serve(argc > 0 ? argv[0] : "velorixhelper", options);
}

int VXHCommandLine::serve(const char* program, const Options& options) {
    const bool display = hasDisplay();
    if (display) {
        // Before any other Xlib call of the process: the back ends open displays on several threads.
        X11Display::initThreads();
    }

    // The offscreen platform is chosen on the command line rather than in the environment, so that the
    // programs the server launches do not inherit it.
    std::string arg0 = program;
    std::string platformFlag = "-platform";
    std::string platform = "offscreen";
    char* qtArgv[] = {arg0.data(), platformFlag.data(), platform.data(), nullptr};
    int qtArgc = 3;
    QGuiApplication application(qtArgc, qtArgv);
    QCoreApplication::setApplicationName("VelorixHelper");
    QCoreApplication::setApplicationVersion(VXH_VERSION_STRING);
    PZQtRunLoopBridge bridge(PZRunLoop::main());

    if (display && !options.headless) {
        PZLog("No tray icon and windows in this version: running headless");
    }

    auto manager = VXHManager::create(std::make_shared<VXLogNotificationPoster>());
    manager->setPortOverride(options.port);
    VXSignalWatcher signalWatcher([&manager](int) {
        manager->applicationWillTerminate();
        QCoreApplication::exit(0);
    });
    manager->applicationDidFinishLaunching();
    if (manager->getSocketPort() == 0) {
        manager->applicationWillTerminate();
        return 1;
    }
    const int status = QCoreApplication::exec();
    manager->applicationWillTerminate();
    return status;
}
