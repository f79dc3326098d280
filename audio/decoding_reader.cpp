#include "audio/decoding_reader.h"

#include <algorithm>
#include <climits>
#include <cmath>

namespace audio {

std::int32_t DecodingReader::seconds_to_position(double seconds)
{
    const double p = std::trunc(static_cast<double>(get_rate()) * seconds);
    return static_cast<std::int32_t>(std::clamp(p, double(INT32_MIN), double(INT32_MAX)));
}

double DecodingReader::position_to_seconds(std::int32_t position)
{
    const std::int32_t rate = get_rate();
    return rate == 0 ? 0.0 : static_cast<double>(position) / rate;
}

bool DecodingReader::transfer_seconds(double seconds) { return transfer_position(seconds_to_position(seconds)); }

bool DecodingReader::transfer_position(std::int32_t amount)
{
    if (!is_open())
        return false;
    while (amount > 0) {
        PCMData record;
        get_data(record, amount);
        if (record.empty())
            return false;
        push_data(record);
        amount -= static_cast<std::int32_t>(record.sample_count());
    }
    return true;
}

} // namespace audio
