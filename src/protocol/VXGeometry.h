#pragma once

// A point: two doubles.
struct VXPoint {
    double x = 0;
    double y = 0;
    bool operator==(const VXPoint&) const = default;
};

// A size: width and height.
struct VXSize {
    double width = 0;
    double height = 0;
    bool operator==(const VXSize&) const = default;
};

// A rectangle: origin x, origin y, width, height.
struct VXRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
    bool operator==(const VXRect&) const = default;
};
