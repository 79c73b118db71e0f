// How a program behaves: what a real system would let pass, but nobody should do.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace sim
{

// What a program has to give back.
enum Held
{
    Held_Descriptor,
    Held_Channel,
    Held_Pipe,
    Held_Stream,
};

class CConduct
{
  public:
    static CConduct& Instance();

    // Notes what the program did, "waits for ...", at the place of that return address.
    void Complain(const void* caller, const std::string& what);

    // Notes that the program got something, a descriptor, a handle or a stream, and that it gave it back. What it did
    // to get it, "opened /dev/ipmi0", is for the complaint that it did not.
    void Take(Held kind, std::intptr_t thing, const void* caller, const std::string& what);
    void GiveBack(Held kind, std::intptr_t thing);

    // True for a place in the simulation itself, which gives back what it opens when the process ends.
    static bool IsOwn(const void* caller);

    // The complaints, a sentence each, one for each thing that was not given back among them. Forgets them all.
    std::vector<std::string> Finish();

  private:
    struct Complaint
    {
        const void* Caller;
        std::string What;
    };

    std::mutex m_Mutex;
    std::vector<Complaint> m_Complaints;
    std::map<std::pair<Held, std::intptr_t>, Complaint> m_Held;
};

}  // namespace sim
