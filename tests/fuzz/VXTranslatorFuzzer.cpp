// Feeds arbitrary bytes to a stream translator. The protocol the translator starts in is fixed at
// build time (VXH_FUZZ_PROTOCOL: 0 XML, 1 JSON); the first input byte chooses how the rest is cut
// into chunks and whether the delegate switches to JSON when it gets an info or a request, as the
// session does during the handshake. Streams go to a discarding sink: nothing is written to disk.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "protocol/VXCommand.h"
#include "protocol/VXDirectory.h"
#include "protocol/VXDiscardingStreamSink.h"
#include "protocol/VXError.h"
#include "protocol/VXFile.h"
#include "protocol/VXInfo.h"
#include "protocol/VXNullProcessNameLookup.h"
#include "protocol/VXProcess.h"
#include "protocol/VXProcessList.h"
#include "protocol/VXRequest.h"
#include "protocol/VXTranslator.h"
#include "protocol/VXTranslatorDelegate.h"
#include "transport/PZLogger.h"

#ifndef VXH_FUZZ_PROTOCOL
#define VXH_FUZZ_PROTOCOL 1
#endif

namespace {

// Encodes every message it gets in both forms, so the writers run on whatever the reader built.
class EncodingDelegate : public VXTranslatorDelegate {
public:
    explicit EncodingDelegate(bool switchToJSON) : switchToJSON_(switchToJSON) {}

    void translatorDidGetCommand(VXTranslator&, std::shared_ptr<VXCommand> m) override { encode(*m); }
    void translatorDidGetRequest(VXTranslator& t, std::shared_ptr<VXRequest> m) override {
        encode(*m);
        maybeSwitch(t);
    }
    void translatorDidGetInfo(VXTranslator& t, std::shared_ptr<VXInfo> m) override {
        encode(*m);
        maybeSwitch(t);
    }
    void translatorDidGetFile(VXTranslator&, std::shared_ptr<VXFile> m) override { encode(*m); }
    void translatorDidGetError(VXTranslator&, std::shared_ptr<VXError> m) override { encode(*m); }
    void translatorDidGetProcess(VXTranslator&, std::shared_ptr<VXProcess> m) override { encode(*m); }
    void translatorDidGetProcessList(VXTranslator&, std::shared_ptr<VXProcessList> m) override { encode(*m); }
    void translatorDidGetDirectory(VXTranslator&, std::shared_ptr<VXDirectory> m) override { encode(*m); }
    void translatorDidExceedLimit(VXTranslator&, VXTranslatorLimit, const std::string&) override {
        ++limits_;
    }

    std::size_t total() const { return total_; }

private:
    void encode(const VXTranslationProtocol& message) {
        total_ += message.getJSONString().size() + message.getJSONData().size();
        if (auto xml = message.getXMLData()) {
            total_ += xml->size();
        }
    }
    void maybeSwitch(VXTranslator& translator) {
        if (switchToJSON_) {
            translator.setProtocol(VXTranslator::kProtocolJSON);
        }
    }

    bool switchToJSON_;
    std::size_t total_ = 0;
    int limits_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool quiet = [] {
        PZLogger::setEchoEnabled(false);
        return true;
    }();
    (void)quiet;
    if (size == 0) {
        return 0;
    }
    const std::uint8_t control = data[0];
    ++data;
    --size;
    // 0: the whole input in one chunk; otherwise chunks of that many bytes.
    const std::size_t chunk = (control >> 1) == 0 ? std::max<std::size_t>(size, 1) : (control >> 1);

    EncodingDelegate delegate((control & 1) != 0);
    VXTranslator translator(std::make_shared<VXDiscardingStreamSink>(),
                            std::make_shared<VXNullProcessNameLookup>());
    translator.setDelegate(&delegate);
    translator.setProtocol(VXH_FUZZ_PROTOCOL);
    for (std::size_t offset = 0; offset < size; offset += chunk) {
        translator.translateBytes(data + offset, std::min(chunk, size - offset));
    }
    return 0;
}
