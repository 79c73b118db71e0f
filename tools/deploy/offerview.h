// Shows offers and what came of them.
#pragma once

#include <nlohmann/json.hpp>
#include <vector>

#include "tools/deploy/offer.h"
#include "tools/deploy/session.h"

using Offers = std::vector<Offer>;

// The worst one.
int WorstStatus(const Offers& offers);

// The table of what is made of the offers, of which each is shown as soon as it is known; with --quiet those that are a
// problem.
class COfferTable
{
  public:
    explicit COfferTable(CScreen& screen) : m_Screen(screen) {}
    void Add(const Offer& offer);

    // Shows those that were superseded since.
    void ShowSuperseded(const Offers& offers);

  private:
    CScreen& m_Screen;
    bool m_bBegun = false;
};

// Prints how installations ended; with --quiet what is a problem.
void ShowOutcomes(Session& session, const Offers& offers);

// Prints which packages run though nobody has signed them.
void ShowUnsigned(Session& session, const Offers& offers);

// Prints what is offered and can't be undone.
void ShowNoWayBack(Session& session, const Offers& offers);

// Prints what to do now, and names the debug log where something failed.
void ShowAdvice(Session& session, const Offers& offers);

// The document of that schema for scripts.
nlohmann::ordered_json ToJson(const char* schema, const Session& session, const Offers& offers);
