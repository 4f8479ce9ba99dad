#pragma once

// New rule ids: the classic C library generator (multiplier 214013, increment 2531011, bits 16
// to 30) seeded from the clock in whole seconds before every draw, and the loop that asks the
// service until it accepts a candidate. Both rule sheets draw their ids here so that the two
// kinds of rule get ids from the same sequence. A data service may read the same sequence to know
// which candidate a console will ask about next.

#include <qarvo/dataservice/dataservice.h>
#include <qarvo/dataservice/qarvo_export.h>

#include <QString>

#include <functional>

namespace qarvo {

// Seconds since the epoch, as the generator is seeded.
using SecondsClock = std::function<qint64()>;
QARVO_EXPORT qint64 systemSeconds();

// The clock that generators built without one read. Tests may replace it and restore it with
// resetRuleIdClock().
QARVO_EXPORT SecondsClock &ruleIdClock();
QARVO_EXPORT void resetRuleIdClock();

class QARVO_EXPORT RuleIdGenerator
{
public:
    static constexpr int MaxId = 32767;

    // Reads ruleIdClock() at every draw.
    RuleIdGenerator();
    explicit RuleIdGenerator(SecondsClock clock);

    void seed(quint32 seed) { m_state = seed; }
    // The next number of the sequence, 0 to MaxId.
    int next();
    // Seeds from the clock, then draws one number: within one second every draw is the same.
    int draw();

private:
    SecondsClock m_clock;
    quint32 m_state = 1;
};

struct DrawnRuleId
{
    qint32 status = status::Ok; // the failure of CanUseID that ended the search
    QString id;                 // nine digits once accepted
    int tries = 0;
    bool abandoned = false;     // `betweenTries` asked to stop
    bool accepted() const { return !qarvo::failed(status) && !abandoned; }
};

// Called after every candidate the service refused; answering false abandons the search.
using BetweenTries = std::function<bool()>;

// Draws candidates and asks CanUseID(candidate, category) until it no longer answers that the id
// is taken. There is no limit of tries: a service that keeps refusing keeps the search going, and
// a new candidate only comes up once the clock's second has changed, so callers pass
// `betweenTries` to keep their window responsive meanwhile.
QARVO_EXPORT DrawnRuleId drawUnusedRuleId(DataService *service, qint16 category,
                             RuleIdGenerator &generator,
                             const BetweenTries &betweenTries = {});

} // namespace qarvo
