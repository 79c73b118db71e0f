// Decides what is made of what packages offer.
#pragma once

#include <string>
#include <vector>

#include "tools/deploy/offer.h"

// Sets the verdict, its reason, and the status that goes with it.
void Decide(Offer& offer, Verdict verdict, const std::string& why);

// Decides by the installer's word. force: versions that are not newer are installed, too.
void DecideByWord(Offer& offer, bool force);

// Of several packages for one device the newest stays; the others are superseded. Of the same version the first stays.
void KeepNewest(std::vector<Offer>& offers);

// True for install states (ZALSTATE_..) of a server that needs no such firmware.
bool IsNotNeeded(int state);

// Below 0 when version a is older than b, above 0 when it is newer. Numbers in them compare as numbers; a date in
// parentheses (mm/dd/yyyy) decides between equal ones.
int CompareVersions(const std::string& a, const std::string& b);
