#include "app/document.h"

#include "files/id3_tag.h"
#include "liba/fatal.h"
#include "os/file.h"
#include "os/log.h"
#include "os/path.h"
#include "playlist/list.h"

#include <algorithm>
#include <cmath>

Document* Document::instance_ = nullptr;

namespace {

std::wstring tag_title(const std::wstring& path)
{
    Id3Tag tag;
    tag.read(path);
    return tag.present ? tag.title : std::wstring();
}

// The marks as a router reads them: positions in order, each with whether
// its range is in the route.
audio::RouteMarks route_of(const RangeMarks& marks)
{
    audio::RouteMarks route;
    for (int i = 0; i < marks.count(); ++i)
        route.push_back({marks.mark(i).position, marks.mark(i).kind != -1});
    return route;
}

} // namespace

Document::View::View()
{
    if (Document* d = Document::instance())
        d->views_.push_back(this);
}

Document::View::~View()
{
    if (Document* d = Document::instance())
        d->views_.erase(std::remove(d->views_.begin(), d->views_.end(), this), d->views_.end());
}

Document::Document(const std::wstring& settings_path)
    : wake_up_([this] { on_wakeup_due(); }), settings_path_(settings_path)
{
    if (instance_ != nullptr)
        liba::fatal(L"Document::Document()", L"Document is already instantiated");
    instance_ = this;
    // A save that was killed half-way leaves its temporary file behind; under
    // the instance lock no other instance can be saving right now.
    os::remove_stale_temporaries(settings_path_);
    settings_.load(settings_path_);
    audio::connect(muter_, &record_level_control_);
    audio::connect(record_level_control_, &level_meter_record_);
    audio::connect(level_meter_record_, &time_meter_);
    audio::connect(time_meter_, &active_buffer_);
    apply_level_settings();
    rebuild_equalizers();
    audio::connect(level_meter_, &player_);
    play_path_.attach(&level_meter_);
    player_.set_volume(settings_.volume);
    set_speed(settings_.speed, settings_.pitch_lock);
    play_order_.build(0, -1, settings_.mode);
    // The system's timer was registered when the schedule was last applied;
    // where there is none, this running program takes the moment itself.
    const int next = settings_.schedule.next_after(os::DateTime::now());
    if (next >= 0)
        wake_up_.arm_local(L"%app_full_name%", settings_.schedule.task(next).begin);
}

Document::~Document()
{
    if (is_recording())
        stop_recording();
    // The player's thread must not pull through stages that go before it.
    play_path_.attach(nullptr);
    drop_chain();
    player_.stop();
    apply_settings(settings_);
    instance_ = nullptr;
}

audio::FileReader* Document::reader() const
{
    return play_chain_ ? play_chain_->get_reader() : nullptr;
}

std::wstring Document::format() const
{
    return play_chain_ ? play_chain_->get_format() : std::wstring();
}

bool Document::is_paused() const
{
    if (is_recording())
        return is_record_paused();
    if (!play_chain_)
        return false;
    return play_chain_->uses_player() ? player_.is_paused() : play_chain_->is_paused();
}

bool Document::is_healthy() const
{
    if (is_recording())
        return recording_healthy();
    if (audio::FileReader* r = reader())
        return r->is_open();
    return !item_open_;
}

double Document::time_position() const
{
    audio::FileReader* r = reader();
    return r ? r->get_time() : 0.0;
}

double Document::heard_time() const
{
    audio::FileReader* r = reader();
    if (!r)
        return 0.0;
    // What the player holds is sound after the speed stages: each second of
    // it took `rate` seconds of the item.
    const PlayPath::SpeedPlan plan =
        PlayPath::plan_speed(settings_.speed, settings_.pitch_lock, settings_.stretch_any_speed);
    const double rate = plan.step * plan.stretch / plan.factor;
    return std::max(0.0, r->get_time() - player_.queued_seconds() * rate);
}

double Document::remaining_time() const
{
    if (is_recording())
        return record_remaining_time();
    audio::FileReader* r = reader();
    return r ? std::max(0.0, r->get_duration() - r->get_time()) : 0.0;
}

std::wstring Document::rate_text() const
{
    if (is_recording())
        return std::to_wstring(record_status().rate / 1000) + L" kHz";
    audio::FileReader* r = reader();
    return r ? std::to_wstring(r->get_rate() / 1000) + L" kHz" : std::wstring();
}

std::wstring Document::bitrate_text() const
{
    if (is_recording())
        return std::to_wstring(record_status().bit_rate / 1000) + L"kbps";
    audio::FileReader* r = reader();
    return r ? std::to_wstring(r->get_bitrate() / 1000) + L"kbps" : std::wstring();
}

void Document::notify_views(const ChangeFlags& changes)
{
    ChangeFlags out;
    out.general = changes.general || pending_changes_.general;
    out.position = changes.position || pending_changes_.position;
    out.state = changes.state || pending_changes_.state;
    out.volume = changes.volume || pending_changes_.volume;
    out.select_path = pending_changes_.select_path;
    pending_changes_ = ChangeFlags();
    // A view may remove itself or others while being told: walk a copy.
    std::vector<View*> views = views_;
    for (View* v : views) {
        if (std::find(views_.begin(), views_.end(), v) != views_.end())
            v->on_document_changed(out);
    }
}

void Document::set_playlist(const std::wstring& name, std::vector<playlist::PlaylistEntry> items,
                            int current_index, bool ranges_only)
{
    pending_changes_.state = true;
    playlist_name_ = name;
    items_ = std::move(items);
    ranges_only_ = ranges_only;
    failed_opens_ = 0;
    play_order_.build(static_cast<int32_t>(items_.size()), current_index, settings_.mode);
}

void Document::drop_chain()
{
    if (!play_chain_)
        return;
    // The cut takes the lock of the stage the chain feeds, so no pull is
    // inside the chain when it goes.
    if (audio::Provider<audio::PCMData>* p = play_chain_->get_provider())
        audio::connect(*p, nullptr);
    play_chain_.reset();
}

bool Document::play_item(int index, int32_t start_position)
{
    const int count = item_count();
    if (index < 0 || index >= count) {
        if (settings_.mode == PlayOrder::kModePlaylistRepeat)
            index = play_order_.step(0);
        else if (settings_.mode == PlayOrder::kModeShuffle)
            index = play_order_.step(1);
        else
            index = 0;
    }
    if (index < 0 || index >= count) {
        title_.clear();
        pending_changes_.state = true;
        return false;
    }
    item_open_ = true;
    current_item_ = items_[static_cast<size_t>(index)];
    drop_chain();
    os::log() << "play item: " << current_item_.path << "\n";
    // A side file that doesn't parse leaves no marks; its log line says why.
    bookmarks_.load(side_file_of(current_item_.path));
    const audio::RouteMarks route = route_of(bookmarks_);
    play_chain_ = audio::create_play_chain(current_item_.path, ranges_only_ ? &route : nullptr, tag_title);
    if (!play_chain_) {
        ++failed_opens_;
        os::log() << "play item: can't open " << current_item_.path << "; the next item follows by the mode\n";
        title_.clear();
        pending_changes_.state = true;
        // The player keeps its state: a stream that was playing ends as it
        // would at the end of its file.
        return false;
    }
    failed_opens_ = 0;
    stalled_position_ = -1;
    drain_ticks_ = 0;
    title_ = current_item_.attribute(L"title");
    if (title_.empty())
        title_ = play_chain_->get_title();
    if (start_position != 0)
        play_chain_->get_reader()->set_position(start_position);
    pending_changes_.state = true;
    if (play_chain_->uses_player()) {
        audio::connect(*play_chain_->get_provider(), &play_path_.head());
        player_.play();
    } else {
        play_chain_->set_paused(false);
    }
    return true;
}

bool Document::play_file(const std::wstring& path)
{
    std::vector<playlist::PlaylistEntry> items;
    // A sound file is found by content before a list is tried: the last of
    // the list readers takes any text as a list of paths.
    if (is_sound(path)) {
        playlist::PlaylistEntry one;
        one.path = path;
        items.push_back(one);
    } else if (std::unique_ptr<playlist::List> list = playlist::load_playlist(path)) {
        for (const playlist::PlaylistEntry& e : list->get_entries()) {
            playlist::PlaylistEntry entry = e;
            entry.path = list->location_of(e);
            items.push_back(entry);
        }
    }
    if (items.empty()) {
        os::log() << "play file: neither sound nor list: " << path << "\n";
        return false;
    }
    set_playlist(path, std::move(items), 0, false);
    return play_item(play_order_.current(), 0);
}

bool Document::is_sound(const std::wstring& path)
{
    if (audio::create_play_chain(path, nullptr))
        return true;
    // The media service holds one file at a time: the one playing through it
    // lets go, or no other file of its kind (nor the same again) could start.
    if (!play_chain_ || play_chain_->get_format() != std::wstring(audio::kFormatWMA))
        return false;
    drop_chain();
    return audio::create_play_chain(path, nullptr) != nullptr;
}

bool Document::play_current()
{
    if (items_.empty())
        return false;
    return play_item(play_order_.current(), 0);
}

bool Document::step_item(int delta)
{
    return play_item(play_order_.step(delta), 0);
}

bool Document::pause()
{
    level_meter_.set_paused(true);
    if (is_recording()) {
        set_record_paused(true);
        return true;
    }
    if (!play_chain_)
        return false;
    pending_changes_.state = true;
    if (play_chain_->uses_player())
        return player_.pause();
    return play_chain_->set_paused(true);
}

bool Document::resume()
{
    level_meter_.set_paused(false);
    if (is_recording()) {
        set_record_paused(false);
        return true;
    }
    if (!play_chain_)
        return false;
    pending_changes_.state = true;
    if (play_chain_->uses_player())
        return player_.play();
    return play_chain_->set_paused(false);
}

bool Document::stop()
{
    pending_changes_.state = true;
    item_open_ = false;
    stop_time_ = os::DateTime();
    if (is_recording())
        return stop_recording();
    if (play_chain_) {
        drop_chain();
        level_meter_.clear();
        player_.stop();
        current_item_ = playlist::PlaylistEntry();
        return true;
    }
    // A failed open leaves no chain, but the player may still drain the
    // item before it.
    player_.stop();
    current_item_ = playlist::PlaylistEntry();
    return false;
}

void Document::seek_relative(double seconds)
{
    audio::FileReader* r = reader();
    if (!r)
        return;
    pending_changes_.position = true;
    double t = std::clamp(r->get_time() + seconds, 0.0, r->get_duration());
    r->set_time(t);
}

void Document::seek_fraction(double fraction)
{
    audio::FileReader* r = reader();
    if (!r)
        return;
    pending_changes_.position = true;
    r->set_position(static_cast<int32_t>(std::trunc(static_cast<double>(r->get_length()) * fraction)));
}

bool Document::add_bookmark()
{
    if (is_recording())
        return add_record_bookmark();
    audio::FileReader* r = reader();
    if (!r)
        return false;
    pending_changes_.position = true;
    bookmarks_.add_mark(r->get_position(), L"Bookmark");
    if (!bookmarks_.save(side_file_of(current_item_.path)))
        os::log() << "Document: can't write the marks of " << current_item_.path << "\n";
    return true;
}

void Document::set_play_mode(int mode)
{
    pending_changes_.state = true;
    settings_.mode = mode;
    play_order_.change_mode(mode);
}

void Document::set_volume(double volume)
{
    pending_changes_.volume = true;
    settings_.volume = std::clamp(volume, 0.0, 1.0);
    player_.set_volume(settings_.volume);
}

void Document::set_speed(double speed, bool pitch_lock)
{
    pending_changes_.state = true;
    settings_.speed = play_path_.set_speed(speed, pitch_lock, settings_.stretch_any_speed).stored;
    settings_.pitch_lock = pitch_lock;
}

void Document::set_booster(int index)
{
    settings_.booster = index;
    apply_levels();
}

void Document::set_noise(int index)
{
    settings_.noise = index;
    apply_levels();
}

void Document::set_limiter(int index)
{
    settings_.limiter = index;
    apply_levels();
}

void Document::apply_levels()
{
    apply_settings(settings_);
    play_path_.set_levels(settings_.booster, settings_.noise, settings_.limiter);
}

void Document::apply_settings(const Settings& new_settings)
{
    pending_changes_.state = true;
    if (&new_settings != &settings_)
        settings_ = new_settings;
    if (!settings_.save(settings_path_))
        os::log() << "Document: can't write the settings\n";
    play_order_.change_mode(settings_.mode);
    apply_level_settings();
    arm_wakeup();
}

void Document::rebuild_equalizers()
{
    play_path_.set_equalizers(settings_.equalizer1, settings_.equalizer2, settings_.equalizer3);
}

void Document::end_of_item()
{
    item_open_ = false;
    const int mode = settings_.mode;
    // A whole pass in which nothing opened: the list holds nothing playable.
    const int pass = mode <= PlayOrder::kModeSingleRepeat ? 1 : std::max(item_count(), 1);
    if (failed_opens_ >= pass) {
        os::log() << "play item: nothing in the list opens; stopped\n";
        failed_opens_ = 0;
        stop();
        return;
    }
    if (ranges_only_ && mode >= PlayOrder::kModePlaylistOnce) {
        stop();
    } else if (mode == PlayOrder::kModeSingleRepeat) {
        play_item(play_order_.step(0), 0);
    } else if (mode >= PlayOrder::kModePlaylistOnce && play_order_.has_next()) {
        play_item(play_order_.step(1), 0);
    } else {
        stop();
    }
}

// The reader runs ahead of what is heard by up to six device buffers of
// 200 ms (more with a stretch between them); ending the item when it reads
// its end would cut that off. A paused player waits; a draining one waits
// while its device keeps taking sound, so a device that stalls for a second
// can't hold the list.
bool Document::player_still_sounding()
{
    constexpr int kStalledTicks = 5;
    if (!play_chain_ || !play_chain_->uses_player())
        return false;
    if (player_.is_paused())
        return true;
    audio::PlayerPCM::Status s = player_.status();
    if (s.state == audio::PlayerPCM::kIdle || !s.device_open)
        return false;
    const std::uint64_t calls = player_.device_callbacks();
    if (calls != drain_callbacks_) {
        drain_callbacks_ = calls;
        drain_ticks_ = 0;
    }
    return ++drain_ticks_ <= kStalledTicks;
}

void Document::on_timer()
{
    if (is_recording()) {
        voice_activation();
        if (stop_time_passed()) {
            stop();
            ChangeFlags changes;
            changes.position = changes.state = true;
            notify_views(changes);
            return;
        }
        on_record_timer();
        return;
    }
    if (item_open_) {
        audio::FileReader* r = reader();
        bool stalled = false;
        if (r && play_chain_->uses_player() && !player_.is_paused()) {
            audio::PlayerPCM::Status s = player_.status();
            int32_t at = r->get_position();
            // Draining: the player has pulled the end of the stream.
            if (s.state == audio::PlayerPCM::kDraining || (s.finished && s.state == audio::PlayerPCM::kIdle)) {
                stalled = at == stalled_position_;
                stalled_position_ = at;
            } else {
                stalled_position_ = -1;
            }
        }
        if (r && (r->is_eof() || stalled) && player_still_sounding()) {
            ChangeFlags changes;
            changes.position = true;
            notify_views(changes);
            return;
        }
        if (!r || r->is_eof() || stalled) {
            stalled_position_ = -1;
            drain_ticks_ = 0;
            end_of_item();
            ChangeFlags changes;
            changes.position = changes.state = true;
            notify_views(changes);
            return;
        }
    }
    if (is_playing()) {
        ChangeFlags changes;
        changes.position = true;
        notify_views(changes);
    }
}
