#pragma once

#include <memory>
#include <optional>
#include <string>

#include "protocol/PZDictionary.h"
#include "protocol/VXTranslationProtocol.h"

// A piece of session information: a subject ("protocol", "app", "version", ...) and its text.
class VXInfo : public VXTranslationProtocol {
public:
    // Makes an info; either part may be absent.
    VXInfo(std::optional<std::string> subject, std::optional<std::string> information);
    // The class constructor.
    static std::shared_ptr<VXInfo> infoWithSubjectInformation(std::optional<std::string> subject,
                                                              std::optional<std::string> information);

    // The subject.
    const std::optional<std::string>& subject() const noexcept { return subject_; }
    // The information text.
    const std::optional<std::string>& information() const noexcept { return information_; }
    // Replaces the subject.
    void setSubject(std::optional<std::string> subject) { subject_ = std::move(subject); }
    // Replaces the information text.
    void setInformation(std::optional<std::string> information) { information_ = std::move(information); }
    // { subject: information }, or nothing when either is absent.
    std::optional<PZDictionary> getDictionary() const;

    // {"subject":...,"information":...}.
    std::string getJSONString() const override;
    // {"info":<body>}.
    std::vector<std::uint8_t> getJSONData() const override;
    // <info subject="...">information</info>.
    std::optional<std::string> getXMLString() const override;
    // The XML element as bytes.
    std::optional<std::vector<std::uint8_t>> getXMLData() const override;

private:
    std::optional<std::string> subject_;
    std::optional<std::string> information_;
};
