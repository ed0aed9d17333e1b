#include "velorixctl/VXCtlCommandLine.h"

int VXCtlCommandLine::run(int, char**) {
    return 2;
}
