#pragma once

// The real velorixhelper and velorixctl, run with a temporary home.

#include <gtest/gtest.h>

#include <csignal>

#include "E2ESubprocess.h"
#include "app/AppTestSupport.h"

inline const std::string kServer = VXH_VELORIXHELPER_PATH;
inline const std::string kCtl = VXH_VELORIXCTL_PATH;

class VelorixHelperE2ETest : public ::testing::Test {
protected:
    std::map<std::string, std::optional<std::string>> environment() const {
        return {{"HOME", home_.path().string()}, {"XDG_CONFIG_HOME", (home_.path() / "config").string()}};
    }

    std::unique_ptr<E2ESubprocess> startServer(const std::vector<std::string>& args,
                                               std::map<std::string, std::optional<std::string>> extra = {}) {
        auto env = environment();
        env.insert(extra.begin(), extra.end());
        return std::make_unique<E2ESubprocess>(kServer, args, env);
    }

    // The port named by the "Waiting for connections on port N" line, or 0 when it did not come.
    static int waitForPort(E2ESubprocess& server) {
        const auto line = server.waitForError("Waiting for connections on port ", std::chrono::seconds(30));
        if (!line) {
            return 0;
        }
        return std::stoi(line->substr(line->rfind(' ') + 1));
    }

    E2ESubprocess::Result config(const std::vector<std::string>& words) {
        std::vector<std::string> args{"config"};
        args.insert(args.end(), words.begin(), words.end());
        return E2ESubprocess::run(kServer, args, environment());
    }

    E2ESubprocess::Result ctl(int port, const std::vector<std::string>& words) {
        std::vector<std::string> args{"--port", std::to_string(port)};
        args.insert(args.end(), words.begin(), words.end());
        return E2ESubprocess::run(kCtl, args, environment());
    }

    apptest::TemporaryFolder home_;
};
