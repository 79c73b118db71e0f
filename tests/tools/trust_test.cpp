#include <algorithm>
#include <nlohmann/json.hpp>

#include "support/files.h"
#include "tests/support.h"
#include "tools/deploy/manifest.h"
#include "tools/deploy/signature.h"

namespace
{

const std::string ZeroDigest(64, '0');
const std::string Head = "FlashLib package 1\nname fan\nversion 2.1 (03/15/2021)\n";

// Why the text is no manifest; empty: it is one.
std::string Refusal(const std::string& text)
{
    try {
        ReadManifest(text);
        return "";
    } catch (const std::exception& error) {
        return error.what();
    }
}

std::string FileLine(const std::string& name, const std::string& size = "12", const std::string& digest = ZeroDigest)
{
    return digest + "  " + size + "  " + name + "\n";
}

}  // namespace

TEST(Trust, ReadsManifestsThatAreExactlyRight)
{
    const Manifest manifest = ReadManifest(Head + FileLine("a.bin", "268435456") + FileLine("fan", "0", Digest("abc")));
    EXPECT_EQ("fan", manifest.Name);
    EXPECT_EQ("2.1 (03/15/2021)", manifest.Version);
    ASSERT_EQ(2u, manifest.Files.size());
    EXPECT_EQ(268435456u, manifest.Files[0].Size);
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad",
              manifest.Files[1].Digest);  // FIPS 180-4

    const std::string fan = FileLine("fan");
    const std::pair<std::string, const char*> cases[] = {
        {"", "line 1 breaks off"},
        {"FlashLib package 2\nname fan\n", "line 1 is not \"FlashLib package 1\""},
        {"FlashLib package 1\nname ../fan\n", "line 2 names no package"},
        {"FlashLib package 1\nname fan\nversion \n", "line 3 is no text for a person"},
        {"FlashLib package 1\nname fan\nversion \x1b[2J\n", "line 3 is no text for a person"},
        {Head, "it lists no installer fan"},
        {Head + FileLine("fan").substr(0, 70), "line 4 breaks off"},
        {Head + "fan\n", "line 4 is not digest, size, name"},
        {Head + FileLine("fan", "-1"), "line 4 has a size that no file has"},
        {Head + FileLine("fan", "012"), "line 4 has a size that no file has"},
        {Head + FileLine("fan", "268435457"), "line 4 has a size that no file has"},
        {Head + FileLine("fan", "4294967308"), "line 4 has a size that no file has"},
        {Head + FileLine("fan", "12", std::string(64, 'A')), "line 4 has a digest that is none"},
        {Head + FileLine("../fan"), "line 4 names a file outside of the package: ../fan"},
        {Head + FileLine(".."), "line 4 has a name that no file of a package has: .."},
        {Head + FileLine("fan\r"), "line 4 has a name that no file of a package has: fan?"},
        {Head + FileLine("MANIFEST"), "line 4 has a name that no file of a package has: MANIFEST"},
        {Head + fan + fan, "line 5 is out of order"},
        {Head + fan + FileLine("MANIFESTO"), "line 5 is out of order"},
        {Head + std::string(MaxManifestSize, ' '), "it has more than 65536 bytes"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.second, Refusal(c.first)) << c.first;
    std::string many = Head;
    for (int i = 100; i < 356; i++) many += FileLine(std::to_string(i));
    EXPECT_EQ("line 260 is one too many", Refusal(many + fan));
}

TEST(Trust, AcceptsWhatMinisignSignsAndNothingElse)
{
    const CTestFolder folder;
    const std::string message = Head + FileLine("fan");
    const std::string file = folder.Write("MANIFEST", message);
    const std::string key = folder.Path() / "author";
    const std::string sign = " && minisign -S -s " + key + " -m " + file + " </dev/null";
    std::string output;
    ASSERT_EQ(0, RunCommand("minisign -G -W -p " + key + ".pub -s " + key + sign, output)) << output;
    const std::string text = ReadWholeFile(file + ".minisig");
    const std::string keyText = ReadWholeFile(key + ".pub");
    const PublicKey publicKey = ReadPublicKey(keyText);
    EXPECT_NE(std::string::npos, keyText.find(publicKey.Name())) << keyText;
    EXPECT_EQ(publicKey.Name(), KeyName(ReadSignature(text)));
    EXPECT_TRUE(IsSignedBy(publicKey, ReadSignature(text), message));
    EXPECT_FALSE(IsSignedBy(publicKey, ReadSignature(text), message + "\n"));

    // No character behind the untrusted comment may be another, none may be missing, none may follow.
    const auto accepts = [&](const std::string& changed) {
        try {
            return IsSignedBy(publicKey, ReadSignature(changed), message);
        } catch (const std::exception&) {
            return false;
        }
    };
    for (std::size_t i = text.find('\n'); i < text.size(); i++) {
        std::string changed = text;
        changed[i] = static_cast<char>(changed[i] ^ 1);
        EXPECT_FALSE(accepts(changed)) << changed;
        EXPECT_FALSE(accepts(text.substr(0, i))) << i;
    }
    EXPECT_FALSE(accepts(text + "\n"));

    ASSERT_EQ(0, RunCommand("minisign -S -l -s " + key + " -m " + file + " </dev/null", output)) << output;
    EXPECT_THROW(ReadSignature(ReadWholeFile(file + ".minisig")), std::runtime_error);
    EXPECT_THROW(ReadPublicKey(text), std::runtime_error);
}

namespace
{

// A signed package with an installer that leaves a mark when it runs.
class Attack : public testing::Test
{
  protected:
    Attack()
    {
        for (const char* name : {"author", "former", "stranger"})
            Shell(std::string("minisign -G -W -p ") + name + ".pub -s " + name + ".key");
        m_Folder.Write("former.expires", "2020-12-31\n");
        m_Folder.Write("fan", "#!/bin/sh\necho \"$@\" >>" + Mark() + "\n");
        m_Folder.Write("image.bin", "an image\n");
        m_Folder.Write("sign", R"sh(#!/bin/sh
key=$1
shift
minisign -S "$@" -s $key.key -m package/MANIFEST </dev/null
)sh");
    }

    std::string Mark() const { return m_Folder.Path() / "mark"; }

    // Runs a command in the folder around the package.
    void Shell(const std::string& command)
    {
        std::string output;
        ASSERT_EQ(0, RunCommand("cd " + m_Folder.Path().string() + " && { " + command + "; }", output))
            << command << "\n"
            << output;
    }

    void MakePackage()
    {
        Shell("rm -rf package && mkdir package && cp fan image.bin package && '" LISTER
              "' fan 2.0 package && sh sign author");
    }

    // A command of zaldeploy for a folder there.
    int Run(const std::string& command, const std::string& folder = "package")
    {
        return RunOnHost(Command(command, folder), m_Output);
    }

    std::string Command(const std::string& command, const std::string& folder = "package") const
    {
        return "cd " + m_Folder.Path().string() + "; " ZALDEPLOY " " + command +
               " --state state --trust author.pub --trust former.pub " + folder;
    }

    // The same as a script that plans.
    std::string PlanScript(const std::string& options = "") const
    {
        return "sh " + m_Folder.Write("plan", Command("plan " + options) + "\n");
    }

    CTestFolder m_Folder;
    std::string m_Output;
};

const char* const NotSigned = "The package is not signed.";

struct AttackCase
{
    std::string Command;  // in the folder around the package
    std::string Why;      // that the row gives
};

// Every way to damage a file, for every file.
std::vector<AttackCase> FileAttacks()
{
    std::vector<AttackCase> cases;
    for (const std::string name : {"fan", "image.bin", "MANIFEST", "MANIFEST.minisig"}) {
        const std::string file = "package/" + name;
        const bool isListed = name == "fan" || name == "image.bin";
        const std::string holds = "The package holds " + name + ", which is ";
        const std::string another = "The package holds another " + name + " than its list of files says.";
        const std::string none = "The package's signature is none: ";
        const std::string changed = isListed ? another : name == "MANIFEST" ? "is not what was signed" : none;
        if (name != "MANIFEST.minisig")
            cases.push_back(
                {"rm " + file, isListed ? "The package lacks " + name : "has a signature, and no MANIFEST."});
        cases.push_back({"printf x >>" + file, changed});
        cases.push_back({"truncate -s 5 " + file, changed});
        cases.push_back({"printf '\\001' | dd conv=notrunc bs=1 seek=3 of=" + file, changed});
        cases.push_back({"mv " + file + " moved; ln -s ../moved " + file, holds + "a symbolic link"});
        cases.push_back({"rm " + file + "; mkfifo " + file, holds + "no file"});
        cases.push_back({"rm " + file + "; mkdir " + file, holds + "a folder"});
        if (geteuid() == 0) cases.push_back({"rm " + file + "; mknod " + file + " c 1 3", holds + "a device"});
    }
    return cases;
}

std::vector<AttackCase> AllAttacks()
{
    const std::string sign = "; sh sign author";
    std::vector<AttackCase> cases = FileAttacks();
    const AttackCase others[] = {
        {"rm package/MANIFEST.minisig", NotSigned},
        {"sh sign stranger", ", which is not trusted here."},
        {"sh sign author -l", "it is in the legacy format, without a hash."},
        {"sed -i 's/^trusted comment: /&x/' package/MANIFEST.minisig", "is not what was signed"},
        {"sh sign former", ", which was trusted until 2020-12-31 only"},
        {"sed -i s/2.0/2.1/ package/MANIFEST", "is not what was signed"},
        {"touch package/more", "The package holds more, which is not in its list of files."},
        {"mkdir package/more", "The package holds more, which is not in its list of files."},
        {"ln -s / package/.more", "The package holds .more, which is not in its list of files."},
        {"for i in $(seq 300); do touch package/$i; done", "which is not in its list of files."},
        // By the author.
        {"sed -i s,image.bin,../image.bin, package/MANIFEST" + sign, "line 5 names a file outside of the package"},
        {"sed -i s,image.bin,/etc/passwd, package/MANIFEST" + sign, "line 5 names a file outside of the package"},
        {"sed -i s,image.bin,fan, package/MANIFEST" + sign, "line 5 is out of order"},
        {"sed -i 's/name fan/name nothing/' package/MANIFEST" + sign, "it lists no installer nothing"},
        {"head -c 65537 /dev/zero >package/MANIFEST" + sign, "it has more than 65536 bytes"},
    };
    cases.insert(cases.end(), std::begin(others), std::end(others));
    return cases;
}

}  // namespace

TEST_F(Attack, RunsNothingOfAPackageThatWasTamperedWith)
{
    MakePackage();
    EXPECT_EQ(4, Run("plan")) << m_Output;
    ASSERT_TRUE(std::filesystem::exists(Mark())) << m_Output;

    std::filesystem::remove(Mark());
    const std::vector<AttackCase> cases = AllAttacks();
    Shell("mkdir packages");
    for (std::size_t i = 0; i < cases.size(); i++) {
        MakePackage();
        Shell(cases[i].Command);
        Shell("mv package packages/" + std::to_string(100 + i));
    }
    EXPECT_EQ(4, Run("plan --json", "packages"));
    const auto rows = nlohmann::json::parse(m_Output).at("packages");
    ASSERT_EQ(cases.size(), rows.size());
    for (std::size_t i = 0; i < cases.size(); i++) {
        const std::string why = rows[i].at("why");
        EXPECT_NE(std::string::npos, why.find(cases[i].Why)) << cases[i].Command << "\n" << why;
        EXPECT_NE(std::string::npos, why.find(" Nothing of it was run. ")) << why;
    }
    EXPECT_FALSE(std::filesystem::exists(Mark())) << ReadFile(Mark());
    RecordProperty("attacks", static_cast<int>(cases.size()));

    // Only what has no signature runs where that is allowed.
    EXPECT_EQ(4, Run("plan --allow-unsigned", "packages"));
    EXPECT_NE(std::string::npos, m_Output.find("Not signed: " + std::to_string(100 + FileAttacks().size()) + "."))
        << m_Output;
    const std::string marks = ReadFile(Mark());
    EXPECT_EQ(1, std::count(marks.begin(), marks.end(), '\n')) << marks;
}

TEST_F(Attack, RunsTheCopyThatWasAskedWhateverBecomesOfThePackage)
{
    m_Folder.Write("fan", R"sh(#!/bin/sh
echo "asked $3" >>)sh" + Mark() +
                              R"sh(
[ "$3" = /d ] || exit 1
printf '<qv_rom_discovery>\n<fw_item>\n<version value="2.0"/>\n<active_version value="1.0"/>\n' >$4
printf '<action value="upgrade"/>\n</fw_item>\n</qv_rom_discovery>\n' >>$4
echo 'echo swapped >>)sh" + Mark() +
                              "' >" + (m_Folder.Path() / "package/fan").string() + "\n");
    MakePackage();
    EXPECT_EQ(2, Run("install --yes")) << m_Output;
    EXPECT_EQ("asked /d\nasked /d\nasked \nasked /d\n", ReadFile(Mark()));
}

TEST_F(Attack, GivesInstallersACleanEnvironment)
{
    m_Folder.Write(
        "fan", "#!/bin/sh\n{ env | grep -v ^PWD= | sort; umask; [ ! -e /proc/$$/fd/7 ] || echo 7; } >" + Mark() + "\n");
    MakePackage();
    EXPECT_EQ(7, RunOnHost("(LD_LIBRARY_PATH=/nowhere LD_BIND_NOW=1 PATH=/nowhere:$PATH HOME=/ FLASHLIB_REPORT=9 " +
                               PlanScript("--log " + Mark() + ".log") + " <&- >&- 2>&- 7</dev/null)",
                           m_Output));
    EXPECT_EQ("FLASHLIB_REPORT=3\nPATH=/usr/sbin:/usr/bin:/sbin:/bin\nQVFLASHLOG=" + Mark() + ".log\n0077\n",
              ReadFile(Mark()));
}

TEST_F(Attack, TrustsNoKeyAndNoLibraryThatOthersCanChange)
{
    MakePackage();
    Shell("umask 022; cp -r '" SERVERS
          "/rack' server && mkdir -p server/etc/flashlib/trusted.d && cp author.pub server/etc/flashlib/trusted.d");
    const std::string plan = ZALDEPLOY " plan --server " + (m_Folder.Path() / "server").string() + " " +
                             (m_Folder.Path() / "package").string();
    EXPECT_EQ(4, RunCommand(plan, m_Output));
    EXPECT_NE(std::string::npos, m_Output.find("The installer ended")) << m_Output;
    const std::pair<const char*, const char*> cases[] = {
        {"chmod o+w trusted.d", "/trusted.d can be written by others, who decide what runs then; chmod go-w it"},
        {"chmod g+w trusted.d/author.pub", "/author.pub can be written by others"},
        {"echo never >trusted.d/author.expires", "/author.expires holds no date like 2026-12-31"},
        {"echo >trusted.d/more.pub", "/more.pub can't be trusted: it is not in minisign's format"},
        {"mv trusted.d/author.pub a.pub; ln -s ../a.pub trusted.d/author.pub", "/author.pub is a link"},
        {"echo /tmp >libraries", "/tmp can be written by others"},
        {"mkdir -m 755 /$PWD/maker; chmod o+w .; echo $PWD/maker >libraries", " can be written by others"},
        {"echo /nowhere >libraries", "there is no folder /nowhere"},
        {"echo . >libraries", "there is no folder ."},
        {"echo /usr/lib >libraries; chmod o+w libraries", "/libraries can be written by others"},
    };
    for (const auto& c : cases) {
        Shell("rm -rf kept && cp -a server/etc/flashlib kept && cd server/etc/flashlib && { " + std::string(c.first) +
              "; }");
        EXPECT_EQ(7, RunCommand(plan, m_Output)) << c.first << m_Output;
        EXPECT_NE(std::string::npos, m_Output.find(c.second)) << c.first << m_Output;
        Shell("rm -rf server/etc/flashlib && mv kept server/etc/flashlib");
    }
    Shell("echo /usr/lib >server/etc/flashlib/libraries");
    EXPECT_EQ(4, RunCommand(plan, m_Output)) << m_Output;
}

TEST_F(Attack, LeavesNothingInThePrivateFolderButWhatOthersRun)
{
    MakePackage();
    Shell("umask 022; mkdir -p state/run/zaldeploy.dead00/1 state/run/zaldeploy.live00/1 state/run/precious state/log");
    Shell("touch $(seq -f state/log/%g.log 60) $(seq -f state/log/2026-01-01T000000Z-%g.log 60)");
    const std::string state = (m_Folder.Path() / "state").string();
    EXPECT_EQ(4, RunOnHost("unset QVFLASHLOG; flock " + state + "/run/zaldeploy.live00 " + PlanScript(), m_Output));
    EXPECT_EQ(0, RunCommand("cd " + state + "; ls run; stat -c %a run; ls log | wc -l", m_Output));
    EXPECT_EQ("precious\nzaldeploy.live00\n755\n110\n", m_Output);
    Shell("chmod o+w state/run");
    EXPECT_EQ(7, RunOnHost(PlanScript(), m_Output));
    EXPECT_NE(std::string::npos, m_Output.find("others can write to it; chmod go-w it, or --state")) << m_Output;
    Shell("chmod o-w state/run");

    const std::string mounted = "unshare -m sh -c 'mount -t tmpfs -o noexec tmpfs " + state + " && ";
    if (RunCommand(mounted + "true'", m_Output) != 0) GTEST_SKIP() << m_Output;
    EXPECT_EQ(7, RunOnHost(mounted + PlanScript() + "'", m_Output));
    EXPECT_NE(std::string::npos, m_Output.find("/run: its file system is mounted with noexec")) << m_Output;
}

TEST_F(Attack, FindsKeysAndTheMakersLibrariesOfARealHost)
{
    m_Folder.Write("host", R"sh(#!/bin/sh
set -e
cd "${0%/*}"
mount -t tmpfs -o mode=755 tmpfs /mnt
mkdir /mnt/upper /mnt/work /mnt/maker /mnt/state
mount -t overlay -o lowerdir=/etc,upperdir=/mnt/upper,workdir=/mnt/work overlay /etc
mkdir -p /var/lib/flashlib
mount --bind /mnt/state /var/lib/flashlib
[ $# = 0 ] && exit
umask 022
mkdir -p /etc/flashlib/trusted.d
cp author.pub /etc/flashlib/trusted.d/
cp "$1"/platform/*.so /mnt/maker/
"$2" plan --quiet --wait 60 package || echo "status $?"
echo /mnt/maker >/etc/flashlib/libraries
"$2" plan --quiet --wait 60 package || echo "status $?"
chmod o+w /mnt/maker/libzalci.so
"$2" plan --quiet --wait 60 package || echo "status $?"
chmod o-w /mnt/maker/libzalci.so
chmod o+w /var/lib/flashlib
"$2" plan --quiet --wait 60 package || echo "status $?"
)sh");
    const std::string host = "unshare -m sh " + m_Folder.Path().string() + "/host";
    if (RunCommand(host, m_Output) != 0) GTEST_SKIP() << m_Output;
    Shell("cp -r '" PACKAGES "/systemrom' package && minisign -S -s author.key -m package/MANIFEST </dev/null");
    RunCommand(host + " '" BUILD "' " ZALDEPLOY, m_Output);
    const std::size_t second = m_Output.find("CRU driver is not loaded");
    EXPECT_NE(std::string::npos, second) << m_Output;
    EXPECT_GT(second, m_Output.find("Name the folder of the maker's libraries in /etc/flashlib/libraries."))
        << m_Output;
    EXPECT_LT(second, m_Output.find("/libzalci.so can be written by others")) << m_Output;
    EXPECT_LT(second, m_Output.find("/var/lib/flashlib can be written by others")) << m_Output;
}
