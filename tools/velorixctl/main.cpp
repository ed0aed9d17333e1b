#include "velorixctl/VXCtlCommandLine.h"

int main(int argc, char** argv) {
    return VXCtlCommandLine::run(argc, argv);
}
