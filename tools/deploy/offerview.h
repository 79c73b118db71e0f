// Shows offers and what came of them.
#pragma once

#include <nlohmann/json.hpp>
#include <vector>

#include "tools/deploy/offer.h"
#include "tools/deploy/session.h"

using Offers = std::vector<Offer>;

// The worst one.
int WorstStatus(const Offers& offers);

// Print the table of what is made of the offers, of how installations ended. With --quiet they print what is a problem.
void ShowOffers(Session& session, const Offers& offers);
void ShowOutcomes(Session& session, const Offers& offers);

// Prints which packages run though nobody has signed them.
void ShowUnsigned(Session& session, const Offers& offers);

// Prints what to do now, and names the debug log where something failed.
void ShowAdvice(Session& session, const Offers& offers);

// The document of that schema for scripts.
nlohmann::ordered_json ToJson(const char* schema, const Session& session, const Offers& offers);
