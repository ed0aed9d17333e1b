#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "protocol/VXGeometry.h"
#include "protocol/VXTranslationProtocol.h"

// A captured screen rectangle with its image bytes (or the path of a file holding them). JSON only.
class VXScreenshot : public VXTranslationProtocol {
public:
    // A screenshot carrying the image bytes.
    VXScreenshot(double time, VXRect rect, std::vector<std::uint8_t> tiffData);
    // A screenshot whose image lies in a file (the path is never sent; it goes with no bytes).
    VXScreenshot(double time, VXRect rect, std::string path);

    // The time interval, seconds.
    double time() const noexcept { return time_; }
    // The captured rectangle.
    VXRect rect() const noexcept { return rect_; }
    // The image bytes (whatever format the capture produced).
    const std::vector<std::uint8_t>& tiffData() const noexcept { return tiffData_; }
    // The file holding the image, optional.
    const std::optional<std::string>& path() const noexcept { return path_; }

    // {"screenshot":{"time":..,"rect":[x,y,w,h],"length":N}}.
    std::string getJSONString() const override;
    // {"screenshot":{"time":..,"rect":[..],"length":N,"stream":<N raw bytes>}}.
    std::vector<std::uint8_t> getJSONData() const override;
    // Nothing: a screenshot has no XML form.
    std::optional<std::string> getXMLString() const override;
    // Nothing: a screenshot has no XML form.
    std::optional<std::vector<std::uint8_t>> getXMLData() const override;

private:
    double time_ = 0;
    VXRect rect_;
    std::vector<std::uint8_t> tiffData_;
    std::optional<std::string> path_;
};
