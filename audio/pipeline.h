#pragma once

#include "audio/records.h"
#include "liba/critical_section.h"

#include <atomic>
#include <type_traits>

// The link between audio stages. A stage has an upstream end (Consumer), a
// downstream end (Provider) or both (Processor). One link serves two drives:
// the play side pulls (get_data runs upstream on the player's thread), the
// record side pushes (on_data runs downstream on the recorder's thread).
// Exactly one end of a path drives it; the other direction is refused there.
//
// Locking: each Consumer owns one re-entrant `lock`. A push holds the lock of
// every stage it has passed, taken in order downstream; a pull holds the lock
// of every stage it has passed, taken in order upstream; connect() takes the
// lock of the consumer end it changes. That is what lets the main thread cut
// and relink a path while audio runs. A path has one driver at a time, so the
// two orders never meet.
//
// Units of `n` in get_data: sample frames for PCMData, blocks for ADPCMData
// and GSMData, ignored for MP3Data (one frame a call). `n` is an upper bound;
// less is no sign of the end, only an empty record is.
namespace audio {

template <class T>
class Consumer;

// The downstream end of a stage. Threads: get_data runs on the pulling
// thread, push_data on the pushing thread; `consumer` is changed only by
// connect() on the owner's thread.
template <class T>
class Provider {
public:
    virtual ~Provider() = default;
    // Fills `out` with at most `n` units; an empty record ends the stream.
    virtual void get_data(T& out, int n) = 0;

    // Hands `record` to the linked consumer, holding that consumer's lock for
    // the whole call downstream; without a consumer the record is dropped.
    void push_data(const T& record);

    // The linked consumer, not owned; null when cut. Atomic because a push
    // reads it before it holds the lock that guards it.
    std::atomic<Consumer<T>*> consumer{nullptr};
};

// The upstream end of a stage. Threads: on_data runs on the pushing thread,
// pull_data on the pulling thread. `lock` may be entered by any thread that
// changes the stage while audio runs (a slider on the main thread).
template <class T>
class Consumer {
public:
    Consumer() = default;
    Consumer(const Consumer&) = delete;
    Consumer& operator=(const Consumer&) = delete;

    // A record pushed from upstream; the default ignores it.
    virtual void on_data(const T&) {}
    // Waits for a push that holds `lock` to finish. It does not touch the
    // partner's link: the owner cuts links before stages go.
    virtual ~Consumer()
    {
        lock.enter();
        lock.leave();
    }

    // Asks the linked provider for at most `n` units. Without a provider the
    // result is an empty record with a zeroed format. Takes no lock itself:
    // a stage pulls while it holds its own lock, which keeps connect() from
    // changing `provider` under it.
    void pull_data(T& out, int n)
    {
        Provider<T>* p = provider.load(std::memory_order_acquire);
        if (p == nullptr) {
            out = T();
            return;
        }
        p->get_data(out, n);
    }

    // The linked provider, not owned; null when cut. Changed under `lock`.
    std::atomic<Provider<T>*> provider{nullptr};
    // The one lock of the stage, for both of its ends.
    liba::CriticalSection lock;
};

template <class T>
void Provider<T>::push_data(const T& record)
{
    Consumer<T>* c = consumer.load(std::memory_order_acquire);
    while (c != nullptr) {
        liba::Lock held(c->lock);
        // The link may have changed while this thread waited for the lock.
        // The consumer that is called must be the one whose lock is held:
        // only that lock keeps connect() and the consumer's destructor from
        // cutting it away during the call.
        Consumer<T>* now = consumer.load(std::memory_order_acquire);
        if (now == c) {
            c->on_data(record);
            return;
        }
        c = now;
    }
}

// Joins `provider` to `consumer`, or cuts `provider` off when `consumer` is
// null. The provider's old consumer loses its link first, under its lock.
// A consumer taken over from another provider is not cut from it: that
// provider's `consumer` still names it, so the caller cuts the old provider
// first where that matters. Threads: the owner of the stages (main thread).
// A push reads the link before it takes the consumer's lock, so a stage cut
// out of a running push path may still be named by a push under way: its
// owner stops the pushing thread before it destroys such a stage. A pull
// path needs no such care, since a pull holds the lock of the stage below,
// which the cut itself takes.
template <class T>
void connect(Provider<T>& provider, std::type_identity_t<Consumer<T>>* consumer)
{
    if (Consumer<T>* old = provider.consumer.load(std::memory_order_acquire)) {
        liba::Lock held(old->lock);
        old->provider.store(nullptr, std::memory_order_release);
        provider.consumer.store(nullptr, std::memory_order_release);
    }
    if (consumer != nullptr) {
        liba::Lock held(consumer->lock);
        consumer->provider.store(&provider, std::memory_order_release);
        provider.consumer.store(consumer, std::memory_order_release);
    }
}

// A stage with both ends and one lock, changing records as they pass in
// either direction. process() is called with empty records too and must make
// an empty record of one. Threads: those of the drive.
template <class T>
class Processor : public Consumer<T>, public Provider<T> {
public:
    void on_data(const T& in) override
    {
        liba::Lock held(this->lock);
        T out;
        process(out, in);
        this->push_data(out);
    }

    void get_data(T& out, int n) override
    {
        liba::Lock held(this->lock);
        T in;
        this->pull_data(in, n);
        process(out, in);
    }

protected:
    virtual void process(T& out, const T& in) = 0;
};

// Passes records on unchanged: the fixed head of the play path, to which
// each new play chain is linked.
template <class T>
class NullProcessor : public Processor<T> {
protected:
    void process(T& out, const T& in) override { out = in; }
};

// The report of a stage reached from the direction it refuses.
struct WrongDrive {
    const wchar_t* location;
    const wchar_t* text;
};

// The player pulls and is never pushed to.
inline constexpr WrongDrive kPlayerOnData{L"PlayerPCM::on_data",
                                          L"on_data unexpected - player is active object"};
// The recorder pushes and is never pulled from.
inline constexpr WrongDrive kRecorderGetData{L"RecorderPCM::get_data",
                                             L"get_data unexpected - recorder is active object"};
// The base of the stretch filter refuses pushes. Caption and text are the
// other way round from the two above, and the text names another class: that
// is the report as it has always read, kept so.
inline constexpr WrongDrive kStreamFilterOnData{L"Not implemented", L"LevelFilter::on_data"};

// Ends the process through liba::fatal with `which`.
[[noreturn]] void reject_drive(const WrongDrive& which);

// A consumer end that drives its path by pulling; a push into it is fatal.
template <class T>
class PullOnlyConsumer : public Consumer<T> {
public:
    explicit PullOnlyConsumer(const WrongDrive& refusal) : refusal_(refusal) {}
    void on_data(const T&) final { reject_drive(refusal_); }

private:
    WrongDrive refusal_;
};

// A provider end that drives its path by pushing; a pull from it is fatal.
template <class T>
class PushOnlyProvider : public Provider<T> {
public:
    explicit PushOnlyProvider(const WrongDrive& refusal) : refusal_(refusal) {}
    void get_data(T&, int) final { reject_drive(refusal_); }

private:
    WrongDrive refusal_;
};

// A processor that serves pulls only; a push into it is fatal.
template <class T>
class PullOnlyProcessor : public Processor<T> {
public:
    explicit PullOnlyProcessor(const WrongDrive& refusal) : refusal_(refusal) {}
    void on_data(const T&) final { reject_drive(refusal_); }

private:
    WrongDrive refusal_;
};

} // namespace audio
