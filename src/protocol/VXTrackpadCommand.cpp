#include "protocol/VXTrackpadCommand.h"

#include "protocol/PZNumberText.h"
#include "protocol/PZStringEncoding.h"

namespace {

// Appends ` name="E(value as %d)"`.
void appendEncodedAttribute(std::string& out, const char* name, std::int64_t value) {
    std::string text;
    PZNumberText::appendInteger(text, value);
    out += ' ';
    out += name;
    out += "=\"";
    PZStringEncoding::appendRawURLEncode(text, out);
    out += '"';
}

} // namespace

VXTrackpadCommand::VXTrackpadCommand() : VXTrackpadCommand(0) {}

VXTrackpadCommand::VXTrackpadCommand(std::int64_t pid)
    : VXCommand(std::string("trackpad"), VXProcess(std::nullopt, pid), std::nullopt) {}

std::string VXTrackpadCommand::getJSONString() const {
    std::string out;
    out.reserve(160);
    out += "{\"type\":\"";
    appendEncoded(out, type_);
    out += "\",\"pid\":";
    PZNumberText::appendInteger(out, processPid());
    out += ",\"touch\":";
    PZNumberText::appendInteger(out, touchState_);
    out += ",\"fingers\":";
    PZNumberText::appendInteger(out, fingers_);
    out += ",\"tapCount\":";
    PZNumberText::appendInteger(out, tapCount_);
    out += ",\"shift\":{\"x\":";
    PZNumberText::appendFixed(out, shift_.x, 6);
    out += ",\"y\":";
    PZNumberText::appendFixed(out, shift_.y, 6);
    out += '}';
    if (rotation_ != 0) {
        out += ",\"rotation\":";
        PZNumberText::appendInteger(out, rotation_);
    }
    if (zoom_ != 0) {
        out += ",\"zoom\":";
        PZNumberText::appendInteger(out, zoom_);
    }
    out += '}';
    return out;
}

std::optional<std::string> VXTrackpadCommand::getXMLString() const {
    std::string out = "<cmd type=\"";
    appendEncoded(out, type_);
    out += '"';
    appendEncodedAttribute(out, "pid", static_cast<std::int32_t>(processPid()));
    appendEncodedAttribute(out, "touch", touchState_);
    appendEncodedAttribute(out, "fingers", fingers_);
    appendEncodedAttribute(out, "tapCount", tapCount_);
    if (rotation_ != 0) {
        appendEncodedAttribute(out, "rotation", rotation_);
    }
    if (zoom_ != 0) {
        appendEncodedAttribute(out, "zoom", zoom_);
    }
    out += '>';
    std::string shift;
    PZNumberText::appendFixed(shift, shift_.x, 2);
    shift += ';';
    PZNumberText::appendFixed(shift, shift_.y, 2);
    PZStringEncoding::appendRawURLEncode(shift, out);
    out += "</cmd>";
    return out;
}
