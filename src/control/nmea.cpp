#include "nmea.h"

#include "control.h"

namespace trekcom::detail::nmea {

std::string Checksum(std::string_view msg) {
    const std::string_view body = msg.substr(0, msg.find('*'));
    unsigned sum = 0;
    for (std::size_t i = 1; i < body.size(); ++i) sum ^= static_cast<unsigned char>(body[i]);
    static constexpr char kHex[] = "0123456789ABCDEF";
    return {kHex[(sum >> 4) & 15], kHex[sum & 15]};
}

std::string Complete(std::string message) {
    const std::size_t star = message.find('*');
    if (star == std::string::npos)
        message += '*' + Checksum(message);
    else if (star + 1 == message.size())
        message += Checksum(message);
    return message;
}

Verdict Judge(std::string_view line, bool text_line, bool ignore_checksum, std::int16_t& error_count) {
    Verdict v;
    const bool carries = line.size() >= 3 && line[line.size() - 3] == '*';
    if (ignore_checksum || text_line || !carries) return v;
    if (line.substr(line.size() - 2) == Checksum(line)) {
        v.chkerr = true;
    } else if (++error_count > kMax_Mismatches) {
        v.report = true;
        error_count = 0;
    }
    return v;
}

}  // namespace trekcom::detail::nmea

namespace trekcom::detail {

void Control::Line_Received(const std::string& line, bool text_line) {
    const nmea::Verdict v = nmea::Judge(line, text_line, IgnoreCheckSum, link.Shared().NMEAErrorCount);
    if (v.report)
        Raise_Error(0,
                    xLate("There have been more than 50 check sum errors") + "\r\n" +
                        xLate("Verify that your receiver is putting out check sums"),
                    {});
    if (!sink) return;
    std::string sentence = line;
    bool chkerr = v.chkerr;
    sink->NMEA(sentence, chkerr);
}

void Control::NMEA_Send(std::string& message) {
    Clear_Error_Latch();
    message = nmea::Complete(std::move(message));
    comGarmin->SThreshold(0);
    comGarmin->Output(message + "\r\n");
}

}  // namespace trekcom::detail
