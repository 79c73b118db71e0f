#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <stdexcept>

#include "support/printable.h"
#include "tools/deploy/commands.h"
#include "tools/deploy/installation.h"
#include "tools/deploy/jsonoutput.h"
#include "tools/simulated.h"

namespace
{

const char* const Plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-+=:,./@%";

// The argument as a shell takes it. What is not fit for a terminal is written in octal digits, as bash and ksh take it.
std::string Quoted(const std::string& argument)
{
    if (!argument.empty() && argument.find_first_not_of(Plain) == std::string::npos) return argument;
    if (Printable(argument) != argument) {
        std::string octal = "$'";
        for (char c : argument) {
            char szDigits[8];
            std::snprintf(szDigits, sizeof szDigits, "\\%03o", static_cast<unsigned char>(c));
            octal += std::strchr(Plain, c) && c != '\0' ? std::string(1, c) : szDigits;
        }
        return octal + "'";
    }
    return ShellWord(argument);
}

int CountOffered(const Offers& offers)
{
    return static_cast<int>(std::count_if(offers.begin(), offers.end(), [](const Offer& o) { return o.IsOffered(); }));
}

void ShowCommands(Session& session, const Offers& offers)
{
    session.Screen.Print(std::string("\nzaldeploy ") + (session.Options.Restored.empty() ? "install" : "restore") +
                         " would run:\n");
    for (const Offer& offer : offers) {
        if (!offer.IsOffered()) continue;
        std::string line;
        for (const std::string& argument : InstallCommand(session, offer))
            line += (line.empty() ? "" : " ") + Quoted(argument);
        session.Screen.Print(line);
    }
}

std::string ServerName(const Identity& server)
{
    const std::string name = server.Product.empty() ? server.Host : server.Product;
    return server.Serial.empty() ? name : name + ", serial number " + server.Serial;
}

// Asks the operator. True, too, when there is a request to stop in place of an answer.
bool IsWanted(Session& session, int count)
{
    if (session.Options.Yes) return true;
    const std::string updates = count == 1 ? "this update" : "these " + std::to_string(count) + " updates";
    const std::string what = session.Options.Restored.empty() ? "Install " + updates : "Put the old firmware back";
    session.Screen.Ask(what + " on " + ServerName(session.Server) + "? [y/N]");
    std::string answer;
    if (!session.Runner.WaitForInput(STDIN_FILENO)) {
        session.Screen.Print("");
        return true;
    }
    if (!std::getline(std::cin, answer)) session.Screen.Print("");  // the end of the input ends no line
    if (answer == "y" || answer == "Y" || answer == "yes") return true;
    session.Screen.Print("Nothing was installed.");
    return false;
}

void InstallOne(Session& session, Offer& offer, const std::string& number)
{
    CScreen& screen = session.Screen;
    screen.Print("\n" + Wrap(number + offer.Name() + ": " + ToText(*offer.Found.Word) + " from " + offer.Found.Current +
                                 " to " + offer.Found.Offered,
                             0, screen.Width()));
    Install(session, offer);
    offer.Package.pCopy.reset();
    screen.Print(Wrap(std::string(ToText(offer.Outcome->Result)) + ": " + offer.Outcome->Message, 2, screen.Width()));
}

void InstallAll(Session& session, Offers& offers)
{
    const std::string count = std::to_string(CountOffered(offers));
    int number = 0;
    for (Offer& offer : offers) {
        if (!offer.IsOffered()) continue;
        if (session.Runner.IsStopped())
            LeaveOut(offer);
        else
            InstallOne(session, offer, "[" + std::to_string(++number) + "/" + count + "] ");
    }
    ShowOutcomes(session, offers);
}

}  // namespace

void CheckQuestion(const DeployOptions& options)
{
    if (!options.Yes && !options.DryRun &&
        (options.Json || options.Quiet || !isatty(STDIN_FILENO) || !isatty(STDOUT_FILENO)))
        throw std::runtime_error(
            "it asks before it installs, on a terminal and not with --json or --quiet; --yes installs without asking");
}

int InstallOffers(Session& session, Offers& offers, const char* schema)
{
    if (session.Options.DryRun)
        ShowCommands(session, offers);
    else if (CountOffered(offers) > 0 && (session.Runner.IsStopped() || IsWanted(session, CountOffered(offers))))
        InstallAll(session, offers);
    ShowAdvice(session, offers);
    if (session.Options.Json) PrintJson(ToJson(schema, session, offers));
    return WorstStatus(offers);
}

int RunInstall(const DeployOptions& options)
{
    CheckQuestion(options);
    Session session(options);
    Offers offers = ShowPackages(session, Copies_Keep);
    return InstallOffers(session, offers, "zaldeploy.install");
}
