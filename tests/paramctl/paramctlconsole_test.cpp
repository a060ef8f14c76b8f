// SPDX-License-Identifier: Apache-2.0
// paramctl console: its JSON API over HTTP on loopback, for a file and for a live tuning server.
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/common/gammatreefile.h"
#include "tests/common/tempfile.h"
#include "tests/paramctl/paramctlchild.h"
#include "tests/paramctl/runparamctl.h"
#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::json;
using ParamCtlTest::ParamctlChild;
using ParamCtlTest::RunParamctl;

/// The bundled sample, packed.
struct Sample
{
    ParamTest::TempFile file;
    Sample()
    {
        EXPECT_EQ(
            RunParamctl("pack " PARAM_SOURCE_DIR "/examples/sample.tuning -o " + file.Path()).code,
            0);
    }
};

/// A console started on 127.0.0.1, port 0, and an HTTP client for it.
class Console
{
public:
    explicit Console(std::string const& arguments)
        : m_child("console --bind 127.0.0.1 --port 0 " + arguments),
          m_port(m_child.NumberAfter("listening on http://127.0.0.1:"))
    {
        if (m_port == 0)
            return;
        m_client = std::make_unique<httplib::Client>("127.0.0.1", m_port);
        m_client->set_connection_timeout(5);
        m_client->set_read_timeout(5);
    }

    bool Up() const { return m_client != nullptr; }
    int Port() const { return m_port; }
    std::string Log() const { return m_child.Log(); }
    int Stop() { return m_child.Stop(); }

    /// Status and body of a request; status -1 when no answer came.
    std::pair<int, std::string> Send(std::string const& method, std::string const& target,
                                     std::string const& body = "")
    {
        httplib::Result result = method == "PUT" ? m_client->Put(target, body, "application/json")
                                 : method == "POST"
                                     ? m_client->Post(target, body, "application/json")
                                     : m_client->Get(target);
        if (!result)
            return {-1, ""};
        return {result->status, result->body};
    }

    /// The JSON answer of a request that must succeed; null otherwise.
    Json Answer(std::string const& method, std::string const& target, std::string const& body = "")
    {
        auto const [status, text] = Send(method, target, body);
        EXPECT_EQ(status, 200) << method << " " << target << ": " << text;
        return status == 200 ? Json::parse(text, nullptr, false) : Json();
    }

private:
    ParamctlChild m_child;
    int m_port;
    std::unique_ptr<httplib::Client> m_client;
};

/// paramctl serve on loopback, and the address a live session attaches to.
struct Camera
{
    ParamctlChild server;
    std::string live;
    explicit Camera(std::string const& file) : server("serve --bind 127.0.0.1 " + file)
    {
        if (int const port = server.NumberAfter("listening on port "))
            live = "127.0.0.1:" + std::to_string(port);
    }
};

std::string Edit(char const* branch, char const* path, std::string const& value)
{
    return Json{{"branch", branch},
                {"instance", "t2tconfigdata"},
                {"path", path},
                {"value", Json::parse(value)}}
        .dump();
}

constexpr char PreviewHdr[] = "/api/module?branch=Default%7CSensor.0%7CUsecase.Preview%7CFeature1"
                              ".ISPHDR&instance=t2tconfigdata";

/// What a console on the sample reads with FILE, and from a live server without FILE where that
/// differs (the protocol tells no sources).
struct SampleRead
{
    char const* target;
    char const* pointer;
    Json withFile;
    Json withoutFile = Json(Json::value_t::discarded); ///< discarded: as withFile
};

SampleRead const SampleReads[] = {
    {"/api/tree", "/tables/0/modes/0/children/1/children/1/children/0/path",
     "Default|Sensor.1|Usecase.Snapshot|Scene.Night"},
    {"/api/tree", "/tables/0/modes/0/children/0/children/0/numeric", "0.0|1.0|2.0"},
    {"/api/tree", "/tables/0/modes/0/modeId", 0, nullptr},
    {"/api/modules?branch=Default%7CSensor.0%7CUsecase.Preview", "/modules/0/source",
     "Default|Sensor.0|Usecase.Preview", nullptr},
    {"/api/modules?branch=0.0%7C1.1", "/modules/0/source", "Default", nullptr},
    {PreviewHdr, "/source", "Default|Sensor.0|Usecase.Preview", nullptr},
    {PreviewHdr, "/members/0/members/0/path", "module_version.major_revision"},
    {PreviewHdr, "/members/5/value", "75"},
    {PreviewHdr, "/trigger", nullptr},
    {"/api/module?branch=0.0%7C1.1&instance=t2tconfigdata", "/members/5/value", "60"},
};

void ExpectSampleReads(Console& console, bool file)
{
    for (SampleRead const& read : SampleReads) {
        SCOPED_TRACE(std::string(read.target) + " " + read.pointer);
        Json const answer = console.Answer("GET", read.target);
        EXPECT_EQ(answer.value(Json::json_pointer(read.pointer), Json()),
                  file || read.withoutFile.is_discarded() ? read.withFile : read.withoutFile);
    }
}

TEST(ParamctlConsoleTest, ExitsAtOnceOnWhatItCannotServe)
{
    Sample sample;
    struct Case
    {
        std::string arguments;
        int code;
        char const* message;
    } const cases[] = {
        {"", 2, "usage: paramctl console"},
        {"--port 70000 " + sample.file.Path(), 2, "--port"},
        {"/nonexistent.bin", 1, "/nonexistent.bin: No such file"},
        {"--web /nonexistent " + sample.file.Path(), 1, "no console page at /nonexistent"},
        // Port 1 on loopback: nothing listens there, and the attempt stays on this machine.
        {"--live 127.0.0.1:1 " + sample.file.Path(), 1, "cannot connect to 127.0.0.1:1"},
        {"--live 127.0.0.1:1", 1, "cannot connect to 127.0.0.1:1"},
        {"--live 127.0.0.1:1 --compare " + sample.file.Path(), 2, "--compare needs FILE"},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.arguments);
        ParamctlChild console("console --bind 127.0.0.1 --port 0 " + test.arguments);
        EXPECT_EQ(console.Wait(), test.code);
        EXPECT_NE(console.Log().find(test.message), std::string::npos) << console.Log();
    }
}

TEST(ParamctlConsoleTest, FileSessionAnswersEditsSavesAndCompares)
{
    Sample sample;
    Sample compared;
    ParamTest::TempFile saved;
    Console console("--save-to " + saved.Path() + " --compare " + compared.file.Path() + " " +
                    sample.file.Path());
    ASSERT_TRUE(console.Up()) << console.Log();

    struct Case
    {
        char const* target;
        char const* pointer;
        Json expected;
    } const cases[] = {
        {"/api/session", "/kind", "file"},
        {"/api/session", "/canSave", true},
        {"/api/diff", "/same", true},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(std::string(test.target) + " " + test.pointer);
        Json const answer = console.Answer("GET", test.target);
        EXPECT_EQ(answer.value(Json::json_pointer(test.pointer), Json()), test.expected);
    }
    ExpectSampleReads(console, true);

    // An edit through the deepest branch changes the instance that supplies it, and what is
    // saved and compared is the edited state.
    Json const edited = console.Answer(
        "PUT", "/api/value",
        Edit("Default|Sensor.0|Usecase.Preview|Feature1.ISPHDR", "confidenceThreshold", "71"));
    EXPECT_EQ(edited.value("value", ""), "71");
    EXPECT_EQ(edited.value("source", ""), "Default|Sensor.0|Usecase.Preview");
    EXPECT_EQ(console.Answer("PUT", "/api/value", Edit("Default", "downscaleRatio", "\"0.125\""))
                  .value("value", ""),
              "0.125");
    EXPECT_EQ(console.Answer("POST", "/api/save").value("values", 0), 2);
    EXPECT_EQ(RunParamctl("get " + saved.Path() +
                          " 'Default|Sensor.0|Usecase.Preview' t2tconfigdata confidenceThreshold")
                  .out,
              "# mode Default|Sensor.0|Usecase.Preview\nconfidenceThreshold=71\n");
    EXPECT_EQ(RunParamctl("verify " + saved.Path()).code, 0);
    Json const diff = console.Answer("GET", "/api/diff");
    EXPECT_EQ(diff.value("same", true), false);
    EXPECT_EQ(diff.value(Json::json_pointer("/instances/0/values/0/path"), ""), "downscaleRatio");
    EXPECT_EQ(diff.value(Json::json_pointer("/instances/0/values/0/a"), ""), "0.125");
    EXPECT_EQ(console.Stop(), 0);
}

TEST(ParamctlConsoleTest, TriggerTreeNodesCarryTheirControlVariables)
{
    // Two levels, following control variables 3 and 1, of which the file names only 3: its
    // names are the file's own, which a live session without FILE does not know.
    ParamTest::TempFile file(ParamTest::GammaTreeFile({{2, 3}, {3, 1}, {{3, "drc_gain"}}}));
    for (bool const withFile : {true, false}) {
        SCOPED_TRACE(withFile ? "with FILE" : "live, without FILE");
        std::unique_ptr<Camera> camera(withFile ? nullptr : new Camera(file.Path()));
        Console console(withFile ? file.Path() : "--live " + camera->live);
        ASSERT_TRUE(console.Up()) << console.Log();
        Json const module =
            console.Answer("GET", "/api/module?branch=Default&instance=gamma16_bps_v2");
        std::string const roots = "varitonal_gamma16_core.mod_gamma16_trigger_data";
        // The core's list of roots: varitonal_gamma16_core is the module's last member.
        std::string const root =
            "/members/" + std::to_string(module["members"].size() - 1) + "/members/0/elements/1";
        Json const named = withFile ? Json("drc_gain") : Json();
        struct Case
        {
            std::string pointer;
            Json expected;
        } const cases[] = {
            {"/trigger/generation", 1},
            {"/trigger/path", roots},
            {"/trigger/levels/0/variable", named},
            {"/trigger/levels/1/control", 1},
            {"/trigger/levels/1/variable", nullptr},
            {root + "/kind", "trigger"},
            {root + "/level", 0},
            {root + "/variable", named},
            {root + "/start", "10.0"},
            {root + "/end", "20.0"},
            {root + "/region", nullptr},
            {root + "/members/2/elements/2/kind", "trigger"},
            {root + "/members/2/elements/2/level", 1},
            {root + "/members/2/elements/2/control", 1},
            {root + "/members/2/elements/2/variable", nullptr},
            {root + "/members/2/elements/2/region", roots + "[1].trigger[2].region"},
        };
        for (Case const& test : cases) {
            SCOPED_TRACE(test.pointer);
            EXPECT_EQ(module.value(Json::json_pointer(test.pointer), Json("absent")),
                      test.expected);
        }
        EXPECT_EQ(console.Stop(), 0);
    }
}

TEST(ParamctlConsoleTest, BadRequestsGetTheirStatusAndChangeNothing)
{
    Sample sample;
    // The page's folder: a page, and a link that leads out of it.
    char folder[] = "/tmp/paramctl-console-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    std::string const web = folder;
    ASSERT_EQ(
        RunParamctl("pack " PARAM_SOURCE_DIR "/examples/sample.tuning -o " + web + "/index.html")
            .code,
        0);
    ASSERT_EQ(symlink(sample.file.Path().c_str(), (web + "/outside").c_str()), 0);
    Console console("--web " + web + " " + sample.file.Path());
    ASSERT_TRUE(console.Up()) << console.Log();
    std::string const before = console.Send("GET", PreviewHdr).second;

    struct Case
    {
        char const* method;
        std::string target;
        std::string body;
        int status;
        char const* reason; ///< part of the error text
    } const cases[] = {
        {"PUT", "/api/value", Edit("Default", "confidenceThreshold", "-1"), 400, "outside UInt32"},
        {"PUT", "/api/value", Edit("Default", "confidenceThreshold", "2.5"), 400, "integer"},
        {"PUT", "/api/value", Edit("Default", "confidenceThreshold", "\"1;operationMode=7\""), 400,
         "value"},
        {"PUT", "/api/value", Edit("Default", "confidenceThreshold", "[1, 2]"), 400, ""},
        {"PUT", "/api/value", Edit("Default", "confidenceThreshold", "null"), 400, "value"},
        {"PUT", "/api/value", "{\"branch\": \"Default\",", 400, "no JSON object"},
        {"PUT", "/api/value", "{\"branch\": 1, \"instance\": \"t2tconfigdata\"}", 400, "branch"},
        {"PUT", "/api/value", std::string(70000, ' '), 413, "too large"},
        {"PUT", "/api/value", Edit("Default|Sensor.7", "confidenceThreshold", "1"), 404,
         "Sensor.7"},
        {"PUT", "/api/value", Edit("Default", "nothing", "1"), 404, "no value nothing"},
        {"GET", "/api/module?branch=Default&instance=nothing", "", 404, "no module nothing"},
        {"GET", "/api/modules?branch=Default%7CUsecase.Preview", "", 404, "Usecase.Preview"},
        {"GET", "/api/modules?table=3&branch=Default", "", 404, "table"},
        {"GET", "/api/modules?table=-1&branch=Default", "", 400, "table"},
        {"POST", "/api/save", "", 409, "--save-to"},
        {"GET", "/api/diff", "", 409, "--compare"},
        {"GET", "/api/nothing", "", 404, "no such endpoint"},
        {"GET", "/outside", "", 404, "no such file"},
        {"GET", "/../" + sample.file.Path(), "", 404, ""},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(std::string(test.method) + " " + test.target + " " + test.body.substr(0, 80));
        auto const [status, body] = console.Send(test.method, test.target, test.body);
        EXPECT_EQ(status, test.status) << body;
        Json const answer = Json::parse(body, nullptr, false);
        EXPECT_NE(answer.value("error", "").find(test.reason), std::string::npos) << body;
    }
    EXPECT_EQ(console.Send("GET", PreviewHdr).second, before);
    EXPECT_EQ(console.Send("GET", "/").first, 200);
    EXPECT_EQ(console.Stop(), 0);
    unlink((web + "/outside").c_str());
    unlink((web + "/index.html").c_str());
    rmdir(folder);
}

TEST(ParamctlConsoleTest, SilentClientsDoNotHoldUpOthers)
{
    Sample sample;
    Console console(sample.file.Path());
    ASSERT_TRUE(console.Up()) << console.Log();
    // Clients that connect and say nothing, or stop halfway through a request.
    std::vector<int> silent;
    for (int i = 0; i < 16; ++i) {
        int const fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(console.Port()));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
        if (i % 2 == 1) {
            ASSERT_GT(send(fd, "GET /api/tree HTTP/1.1\r\n", 24, MSG_NOSIGNAL), 0);
        }
        silent.push_back(fd);
    }
    EXPECT_EQ(console.Answer("GET", "/api/session").value("kind", ""), "file");
    // Answered while they are all still connected: none of them had to time out first.
    for (int fd : silent) {
        char byte = 0;
        EXPECT_EQ(recv(fd, &byte, 1, MSG_DONTWAIT), -1);
        close(fd);
    }
    EXPECT_EQ(console.Stop(), 0);
}

TEST(ParamctlConsoleTest, LiveSessionEditsAreSeenByOtherClientsAndSaved)
{
    Sample sample;
    Camera camera(sample.file.Path());
    std::string const live = camera.live;
    ASSERT_FALSE(live.empty()) << camera.server.Log();
    ParamTest::TempFile saved;
    Console console("--live " + live + " --save-to " + saved.Path() + " --compare " +
                    sample.file.Path() + " " + sample.file.Path());
    ASSERT_TRUE(console.Up()) << console.Log();

    EXPECT_EQ(console.Answer("GET", "/api/session").value("live", ""), live);
    EXPECT_EQ(
        console.Answer("PUT", "/api/value", Edit("Default|Sensor.0", "confidenceThreshold", "44"))
            .value("value", ""),
        "44");
    EXPECT_EQ(RunParamctl("client --timeout 5 " + live +
                          " get 'Default|Sensor.0:t2tconfigdata:confidenceThreshold'")
                  .out,
              "values: confidenceThreshold=44\n");
    // A change another client makes is what the console reads and saves.
    ASSERT_EQ(
        RunParamctl("client --timeout 5 " + live + " set 'Default:t2tconfigdata' operationMode=3")
            .code,
        0);
    // So is a nested value, and the live state is what is compared with a file.
    ASSERT_EQ(RunParamctl("client --timeout 5 " + live +
                          " set 'Default:t2tconfigdata' module_version.major_revision=5")
                  .code,
              0);
    Json const module = console.Answer("GET", "/api/module?branch=Default&instance=t2tconfigdata");
    EXPECT_EQ(module.value(Json::json_pointer("/members/1/value"), ""), "3");
    EXPECT_EQ(module.value(Json::json_pointer("/members/0/members/0/value"), ""), "5");
    Json const diff = console.Answer("GET", "/api/diff?branch=Default");
    EXPECT_EQ(diff.value("a", ""), live);
    EXPECT_EQ(diff.value(Json::json_pointer("/instances/0/values"), Json()),
              Json::parse(R"([{"path": "confidenceThreshold", "a": "44", "b": "60"},
                              {"path": "module_version.major_revision", "a": "5", "b": "1"},
                              {"path": "operationMode", "a": "3", "b": "1"}])"));
    EXPECT_EQ(console.Answer("POST", "/api/save").value("values", 0), 3);
    EXPECT_EQ(RunParamctl("get " + saved.Path() +
                          " Default t2tconfigdata operationMode,confidenceThreshold")
                  .out,
              "# mode Default\noperationMode=3\nconfidenceThreshold=44\n");
    EXPECT_EQ(console.Stop(), 0);
}

TEST(ParamctlConsoleTest, LiveSessionWithoutFileReadsEverythingThroughTheProtocol)
{
    Sample sample;
    Camera camera(sample.file.Path());
    ASSERT_FALSE(camera.live.empty()) << camera.server.Log();
    Console console("--live " + camera.live);
    ASSERT_TRUE(console.Up()) << console.Log();
    ExpectSampleReads(console, false);
    Json const session = console.Answer("GET", "/api/session");

    struct Case
    {
        char const* method;
        std::string target;
        std::string body;
        int status;
        char const* pointer;
        Json expected;
    } const cases[] = {
        {"GET", "/api/session", "", 200, "/files", Json::array()},
        {"GET", "/api/modules?branch=Default%7CSensor.0%7CUsecase.Preview", "", 200, "/modules",
         Json::parse(R"([{"instance": "versionsA_sw", "source": null, "version": null,
                          "valueAccess": true},
                         {"instance": "t2tconfigdata", "source": null, "version": null,
                          "valueAccess": true}])")},
        {"PUT", "/api/value", Edit("Default|Sensor.0", "confidenceThreshold", "44"), 200, "/value",
         "44"},
        {"PUT", "/api/value", Edit("Default", "confidenceThreshold", "2.5"), 400, "/error",
         "value of t2tconfigdata.confidenceThreshold: '2.5' is not an integer (UInt32)"},
        {"PUT", "/api/value", Edit("Default", "nothing", "1"), 404, "/error",
         "no value nothing in t2tconfigdata"},
        {"GET", "/api/module?branch=Default&instance=nothing", "", 404, "/error",
         "no module nothing in mode Default"},
        {"GET", "/api/modules?branch=Default%7CUsecase.Preview", "", 404, "/error",
         "no mode 'Usecase.Preview' under Default in mode table 0"},
        // What needs FILE is refused with the reason the page is given.
        {"POST", "/api/save", "", 409, "/error", session["unavailable"]["save"]},
        {"GET", "/api/diff", "", 409, "/error", session["unavailable"]["diff"]},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(std::string(test.method) + " " + test.target + " " + test.pointer);
        auto const [status, body] = console.Send(test.method, test.target, test.body);
        EXPECT_EQ(status, test.status) << body;
        EXPECT_EQ(Json::parse(body, nullptr, false).value(Json::json_pointer(test.pointer), Json()),
                  test.expected);
    }
    EXPECT_EQ(console.Stop(), 0);
}

TEST(ParamctlConsoleTest, LiveSessionWorksOnTheModeTableItIsAskedFor)
{
    // Two mode tables, each with its own tracker.
    ParamTest::TempFile description;
    std::string const text = "version 7.0.0\nbinary-tag two-tables\n"
                             "modetable rear\n  path Default|Sensor.0\n"
                             "instance t2tconfigdata T2TCtrlType mode Default\n"
                             "  value operationMode 1\n"
                             "modetable front\n  path Default|Sensor.0\n"
                             "instance t2tconfigdata T2TCtrlType mode Default\n"
                             "  value operationMode 7\n";
    description.Rewrite(std::vector<uint8_t>(text.begin(), text.end()));
    ParamTest::TempFile file;
    ASSERT_EQ(RunParamctl("pack " + description.Path() + " -o " + file.Path()).code, 0);
    // With FILE, and without it: the tables are the server's alike.
    for (bool const withFile : {true, false}) {
        SCOPED_TRACE(withFile ? "with FILE" : "without FILE");
        Camera camera(file.Path());
        ASSERT_FALSE(camera.live.empty()) << camera.server.Log();
        Console console("--live " + camera.live + (withFile ? " " + file.Path() : ""));
        ASSERT_TRUE(console.Up()) << console.Log();

        auto operationMode = [&](char const* table) {
            return console
                .Answer("GET", std::string("/api/module?branch=Default&instance=t2tconfigdata"
                                           "&table=") +
                                   table)
                .value(Json::json_pointer("/members/1/value"), "");
        };
        EXPECT_EQ(
            console.Answer("GET", "/api/tree").value(Json::json_pointer("/tables/1/name"), ""),
            "front");
        EXPECT_EQ(operationMode("0"), "1");
        EXPECT_EQ(operationMode("1"), "7");
        Json edit = Json::parse(Edit("Default", "operationMode", "9"));
        edit["table"] = 1;
        EXPECT_EQ(console.Answer("PUT", "/api/value", edit.dump()).value("value", ""), "9");
        // The server works on table 0 again for every other client, and table 1 holds the edit.
        std::string const client = "client --timeout 5 " + camera.live + " ";
        std::string const get = client + "get 'Default:t2tconfigdata:operationMode'";
        EXPECT_EQ(RunParamctl(get).out, "values: operationMode=1\n");
        ASSERT_EQ(RunParamctl(client + "index 1").code, 0);
        EXPECT_EQ(RunParamctl(get).out, "values: operationMode=9\n");
        ASSERT_EQ(RunParamctl(client + "index 0").code, 0);
        EXPECT_EQ(console.Stop(), 0);
    }
}

} // namespace
