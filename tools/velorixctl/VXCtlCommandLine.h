#pragma once

// velorixctl: connects as a phone, runs the handshake and one command, prints the answers as JSON lines.
class VXCtlCommandLine {
public:
    // Runs the command line; returns the exit status.
    static int run(int argc, char** argv);
};
