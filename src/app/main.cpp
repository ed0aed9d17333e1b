#include "app/VXHCommandLine.h"

int main(int argc, char** argv) {
    return VXHCommandLine::run(argc, argv);
}
