#include "input/NullEventPoster.h"

#include "transport/PZLogger.h"

int NullEventPoster::drop() {
    if (!logged_.exchange(true)) {
        PZLog("Input: no X server and no writable /dev/uinput; synthetic pointer and key events are dropped");
    }
    return unavailableStatus;
}

int NullEventPoster::placePointer(int, int) {
    return drop();
}

int NullEventPoster::postPointerMotion(int, int) {
    return drop();
}

int NullEventPoster::postButton(Button, bool) {
    return drop();
}

int NullEventPoster::postScroll(int, int) {
    return drop();
}

int NullEventPoster::postKey(int, bool) {
    return drop();
}
