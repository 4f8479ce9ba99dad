#include "dataservice/ruleid.h"

#include "dataservice/calls.h"

#include <QDateTime>

namespace qarvo {

qint64 systemSeconds()
{
    return QDateTime::currentSecsSinceEpoch();
}

namespace {
SecondsClock defaultClock()
{
    return &systemSeconds;
}
} // namespace

SecondsClock &ruleIdClock()
{
    static SecondsClock clock = defaultClock();
    return clock;
}

void resetRuleIdClock()
{
    ruleIdClock() = defaultClock();
}

RuleIdGenerator::RuleIdGenerator() = default;

RuleIdGenerator::RuleIdGenerator(SecondsClock clock) : m_clock(std::move(clock)) {}

int RuleIdGenerator::next()
{
    // Unsigned arithmetic wraps modulo 2^32, exactly as the C library's 32-bit state does.
    m_state = m_state * 214013u + 2531011u;
    return int((m_state >> 16) & 0x7fffu);
}

int RuleIdGenerator::draw()
{
    const SecondsClock &clock = m_clock ? m_clock : ruleIdClock();
    // The seed is the time truncated to 32 bits, as an unsigned seed takes it.
    seed(quint32(quint64(clock ? clock() : systemSeconds())));
    return next();
}

DrawnRuleId drawUnusedRuleId(DataService *service, qint16 category, RuleIdGenerator &generator,
                             const BetweenTries &betweenTries)
{
    DrawnRuleId result;
    for (;;) {
        const QString candidate = ruleIdText(generator.draw());
        ++result.tries;
        const YesNo taken = calls::CanUseID(service, candidate, category);
        if (taken.failed()) {
            result.status = taken.status;
            return result;
        }
        if (!taken.yes) {
            result.id = candidate;
            return result;
        }
        if (betweenTries && !betweenTries()) {
            result.abandoned = true;
            return result;
        }
    }
}

} // namespace qarvo
