#pragma once

#include <optional>
#include <string>
#include <vector>

// The command line of velorixhelper:
//   velorixhelper [--headless] [--port N]   runs the server until SIGINT or SIGTERM
//   velorixhelper config ...                reads and writes the preferences
//   velorixhelper --help | --version
class VXHCommandLine {
public:
    // What the command line asks for.
    struct Options {
        // Print the help text.
        bool help = false;
        // Print the version.
        bool version = false;
        // --headless was given.
        bool headless = false;
        // --port N: the port for this run only.
        std::optional<int> port;
        // The words after "config", when the first word is "config".
        std::optional<std::vector<std::string>> config;
    };

    // Runs the program; returns the exit status.
    static int run(int argc, char** argv);
    // Reads the arguments (without the program name); throws std::invalid_argument with the reason.
    static Options parse(const std::vector<std::string>& args);
    // The text of --help.
    static std::string helpText();

private:
    static int serve(const char* program, const Options& options);
};
