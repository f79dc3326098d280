#include "skinner/hardware_keys.h"

#include "os/log.h"
#include "skinner/listener.h"
#include "skinner/screen.h"

namespace skinner {

namespace {

constexpr std::array<SDL_Keycode, HardwareKeysImpl::kKeyCount> kKeys = {
    SDLK_AUDIOPLAY, SDLK_AUDIOSTOP, SDLK_AUDIOPREV, SDLK_AUDIONEXT, SDLK_AUDIOREWIND, SDLK_AUDIOFASTFORWARD,
    SDLK_VOLUMEUP,  SDLK_VOLUMEDOWN, SDLK_F5,       SDLK_F6,       SDLK_F7,          SDLK_F8,
};

const wchar_t* const kDefaultCommands[] = {L"Play",   L"Stop",    L"Prev",     L"Next",
                                           L"Rewind", L"Forward", L"VolumeUp", L"VolumeDown"};

bool in_range(int i) { return i >= 0 && i < HardwareKeysImpl::kKeyCount; }

} // namespace

HardwareKeysImpl::HardwareKeysImpl(Screen& screen) : screen_(screen)
{
    for (size_t i = 0; i < std::size(kDefaultCommands); ++i)
        buttons_[i] = {kDefaultCommands[i], true};
    screen_.set_key_filter([this](SDL_Keycode key) { return take(key); });
}

HardwareKeysImpl::~HardwareKeysImpl() { screen_.set_key_filter({}); }

std::wstring HardwareKeysImpl::key_name(int i) const
{
    return in_range(i) ? L"Button" + std::to_wstring(i) : std::wstring();
}

SDL_Keycode HardwareKeysImpl::key_code(int i) const { return in_range(i) ? kKeys[size_t(i)] : SDLK_UNKNOWN; }

void HardwareKeysImpl::set_command(int i, const std::wstring& command)
{
    if (in_range(i))
        buttons_[size_t(i)].command = command;
}

const std::wstring& HardwareKeysImpl::command(int i) const
{
    static const std::wstring none;
    return in_range(i) ? buttons_[size_t(i)].command : none;
}

void HardwareKeysImpl::assign(int i, bool assigned)
{
    if (in_range(i))
        buttons_[size_t(i)].assigned = assigned;
}

bool HardwareKeysImpl::is_assigned(int i) const { return in_range(i) && buttons_[size_t(i)].assigned; }

bool HardwareKeysImpl::take(SDL_Keycode key)
{
    for (int i = 0; i < kKeyCount; ++i) {
        const Button& b = buttons_[size_t(i)];
        if (kKeys[size_t(i)] != key || !b.assigned)
            continue;
        os::log() << "hardware key " << i << "\n";
        if (listener_ && !b.command.empty())
            listener_->on_command(b.command);
        return true;
    }
    return false;
}

} // namespace skinner
