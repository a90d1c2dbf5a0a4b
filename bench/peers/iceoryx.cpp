// iceoryx: blocks in its shared memory, one topic per writer; a reader sleeps on a WaitSet or polls.
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include <iceoryx_hoofs/log/logmanager.hpp>
#include <iceoryx_posh/internal/roudi/roudi.hpp>
#include <iceoryx_posh/popo/untyped_publisher.hpp>
#include <iceoryx_posh/popo/untyped_subscriber.hpp>
#include <iceoryx_posh/popo/wait_set.hpp>
#include <iceoryx_posh/roudi/iceoryx_roudi_components.hpp>
#include <iceoryx_posh/runtime/posh_runtime.hpp>
#include <sched.h>
#include <unistd.h>

#include "adders.h"
#include "exchange_by_messages.h"
#include "machine.h"

namespace bench {
namespace {

using iox::capro::IdString_t;
using iox::cxx::TruncateToCapacity;

// It tells of every step on standard error.
void keep_quiet()
{
    iox::log::LogManager::GetLogManager().SetDefaultLogLevel(iox::log::LogLevel::kOff,
                                                             iox::log::LogLevelOutput::kHideLogLevel);
    std::cout.setstate(std::ios::failbit);
    std::clog.setstate(std::ios::failbit);
    std::cerr.setstate(std::ios::failbit);
}

// Its daemon, with as much memory as the messages on their way and the events at the readers need.
void be_roudi(const plan& p, const line_end& line)
{
    keep_quiet();
    iox::mepoo::MePooConfig memory;
    memory.addMemPool(
        {static_cast<uint32_t>((p.payload + 255) / 128 * 128), static_cast<uint32_t>(p.writers * (p.on_the_way + 8))});
    iox::RouDiConfig_t config;
    const auto group = iox::posix::PosixGroup::getGroupOfCurrentProcess().getName();
    config.m_sharedMemorySegments.push_back({group, group, memory});
    iox::roudi::IceOryxRouDiComponents parts(config);
    const iox::roudi::RouDi daemon(
        parts.rouDiMemoryManager, parts.portManager,
        iox::roudi::RouDi::RoudiStartupParameters(iox::roudi::MonitoringMode::OFF, /*killProcesses=*/false));
    stand_by(line);
}

void join_runtime(const std::string& role, int index)
{
    keep_quiet();
    const std::string name = "bm_bench-" + role + std::to_string(index);
    iox::runtime::PoshRuntime::initRuntime(iox::RuntimeName_t(TruncateToCapacity, name));
}

iox::capro::ServiceDescription topic_of(int writer)
{
    return {"bm_bench", IdString_t(TruncateToCapacity, std::to_string(writer)), "block"};
}

class iceoryx_inbox {
  public:
    iceoryx_inbox(const plan& p, int index, bool sleeps)
        : sleeps_(sleeps), held_(static_cast<size_t>(p.writers), nullptr)
    {
        join_runtime("reader", index);
        iox::popo::SubscriberOptions options;
        options.queueCapacity = static_cast<uint64_t>(p.on_the_way);
        options.queueFullPolicy = iox::popo::QueueFullPolicy::BLOCK_PRODUCER;
        waiting_ = std::make_unique<iox::popo::WaitSet<>>();
        for (int w = 0; w < p.writers; ++w) {
            from_.push_back(std::make_unique<iox::popo::UntypedSubscriber>(topic_of(w), options));
            if (sleeps && waiting_->attachEvent(*from_.back(), iox::popo::SubscriberEvent::DATA_RECEIVED).has_error())
                throw std::runtime_error("a subscriber cannot be waited for");
        }
    }
    ~iceoryx_inbox()
    {
        done();
        waiting_.reset();
    }
    iceoryx_inbox(iceoryx_inbox&&) = default;
    iceoryx_inbox& operator=(iceoryx_inbox&&) = delete;

    void join()
    {
        for (const auto& from : from_) {
            while (from->getSubscriptionState() != iox::SubscribeState::SUBSCRIBED) usleep(1000);
        }
    }
    const char* take(int writer)
    {
        const auto at = static_cast<size_t>(writer);
        while (true) {
            auto taken = from_[at]->take();
            if (!taken.has_error()) return static_cast<const char*>(held_[at] = taken.value());
            if (sleeps_) {
                waiting_->wait();
            } else {
                sched_yield(); // others may want the processor
            }
        }
    }
    void done()
    {
        for (size_t w = 0; w < held_.size(); ++w) {
            if (const void* block = std::exchange(held_[w], nullptr)) from_[w]->release(block);
        }
    }

  private:
    bool sleeps_;
    std::vector<std::unique_ptr<iox::popo::UntypedSubscriber>> from_;
    std::unique_ptr<iox::popo::WaitSet<>> waiting_;
    std::vector<const void*> held_;
};

class iceoryx_outbox {
  public:
    iceoryx_outbox(const plan& p, int index) : bytes_(static_cast<uint32_t>(p.payload))
    {
        join_runtime("writer", index);
        iox::popo::PublisherOptions options;
        options.subscriberTooSlowPolicy = iox::popo::ConsumerTooSlowPolicy::WAIT_FOR_CONSUMER;
        to_ = std::make_unique<iox::popo::UntypedPublisher>(topic_of(index), options);
    }
    char* take()
    {
        while (true) {
            auto loaned = to_->loan(bytes_);
            if (!loaned.has_error()) return static_cast<char*>(block_ = loaned.value());
            sched_yield();
        }
    }
    void send() { to_->publish(block_); }

  private:
    uint32_t bytes_;
    std::unique_ptr<iox::popo::UntypedPublisher> to_;
    void* block_ = nullptr;
};

reading measure(const plan& p, bool sleeps)
{
    const covered_folder sockets_and_locks("/tmp"); // they would stay
    cast roles;
    roles.helpers.emplace_back([&](const line_end& line) { be_roudi(p, line); });
    return by_messages(
        p, [&](int k) { return iceoryx_inbox(p, k, sleeps); }, [&](int i) { return iceoryx_outbox(p, i); }, roles);
}

} // namespace

void add_iceoryx(std::vector<peer>& all)
{
    all.push_back({"iceoryx_waitset", takes_everything, [](const plan& p) { return measure(p, true); }});
    all.push_back({"iceoryx_polling", takes_everything, [](const plan& p) { return measure(p, false); }});
}

} // namespace bench
