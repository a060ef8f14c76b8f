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

#include "paramgen/TuningSetManager.h"
#include "tests/common/gammatreefile.h"
#include "tests/common/logcapture.h"
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
        : m_child("console --bind 127.0.0.1 --port 0 " + arguments)
    {
        std::string const prefix = "listening on http://127.0.0.1:";
        if (!m_child.WaitForLog(prefix))
            return;
        std::string const log = m_child.Log();
        m_port = std::stoi(log.substr(log.find(prefix) + prefix.size()));
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
    std::unique_ptr<httplib::Client> m_client;
    int m_port = 0;
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
        {"/api/tree", "/tables/0/modes/0/children/1/children/1/children/0/path",
         "Default|Sensor.1|Usecase.Snapshot|Scene.Night"},
        {"/api/tree", "/tables/0/modes/0/children/0/children/0/numeric", "0.0|1.0|2.0"},
        {"/api/modules?branch=Default%7CSensor.0%7CUsecase.Preview", "/modules/0/source",
         "Default|Sensor.0|Usecase.Preview"},
        {"/api/modules?branch=0.0%7C1.1", "/modules/0/source", "Default"},
        {PreviewHdr, "/source", "Default|Sensor.0|Usecase.Preview"},
        {PreviewHdr, "/members/0/members/0/path", "module_version.major_revision"},
        {PreviewHdr, "/members/5/value", "75"},
        {PreviewHdr, "/trigger", nullptr},
        {"/api/diff", "/same", true},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(std::string(test.target) + " " + test.pointer);
        Json const answer = console.Answer("GET", test.target);
        EXPECT_EQ(answer.value(Json::json_pointer(test.pointer), Json()), test.expected);
    }

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
    // Two levels, following control variables 3 and 1, of which the file names only 3.
    ParamTest::TempFile file(ParamTest::GammaTreeFile({{2, 3}, {3, 1}, {{3, "drc_gain"}}}));
    Console console(file.Path());
    ASSERT_TRUE(console.Up()) << console.Log();
    Json const module = console.Answer("GET", "/api/module?branch=Default&instance=gamma16_bps_v2");
    std::string const roots = "varitonal_gamma16_core.mod_gamma16_trigger_data";
    // The core's list of roots: varitonal_gamma16_core is the module's last member.
    std::string const root =
        "/members/" + std::to_string(module["members"].size() - 1) + "/members/0/elements/1";
    struct Case
    {
        std::string pointer;
        Json expected;
    } const cases[] = {
        {"/trigger/generation", 1},
        {"/trigger/path", roots},
        {"/trigger/levels/0/variable", "drc_gain"},
        {"/trigger/levels/1/control", 1},
        {"/trigger/levels/1/variable", nullptr},
        {root + "/kind", "trigger"},
        {root + "/level", 0},
        {root + "/variable", "drc_gain"},
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
        EXPECT_EQ(module.value(Json::json_pointer(test.pointer), Json("absent")), test.expected);
    }
    EXPECT_EQ(console.Stop(), 0);
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
    std::vector<uint8_t> bytes = ParamCtlTest::ReadBytes(sample.file.Path());
    ParamTest::LogCapture log;
    TuningSetManager camera("console-test");
    ASSERT_TRUE(camera.SetKnobbyListenAddress("127.0.0.1", 0)); // loopback only
    ASSERT_TRUE(camera.LoadBinaryParameters(bytes.data(), bytes.size())) << camera.GetErrorString();
    std::string const live = "127.0.0.1:" + std::to_string(camera.GetKnobbyPort());
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
    std::vector<uint8_t> bytes = ParamCtlTest::ReadBytes(file.Path());
    ParamTest::LogCapture log;
    TuningSetManager camera("console-tables");
    ASSERT_TRUE(camera.SetKnobbyListenAddress("127.0.0.1", 0)); // loopback only
    ASSERT_TRUE(camera.LoadBinaryParameters(bytes.data(), bytes.size())) << camera.GetErrorString();
    std::string const live = "127.0.0.1:" + std::to_string(camera.GetKnobbyPort());
    Console console("--live " + live + " " + file.Path());
    ASSERT_TRUE(console.Up()) << console.Log();

    auto operationMode = [&](char const* table) {
        return console
            .Answer("GET",
                    std::string("/api/module?branch=Default&instance=t2tconfigdata&table=") + table)
            .value(Json::json_pointer("/members/1/value"), "");
    };
    EXPECT_EQ(operationMode("0"), "1");
    EXPECT_EQ(operationMode("1"), "7");
    Json edit = Json::parse(Edit("Default", "operationMode", "9"));
    edit["table"] = 1;
    EXPECT_EQ(console.Answer("PUT", "/api/value", edit.dump()).value("value", ""), "9");
    // The server works on table 0 again for every other client, and table 1 holds the edit.
    std::string const client = "client --timeout 5 " + live + " ";
    std::string const get = client + "get 'Default:t2tconfigdata:operationMode'";
    EXPECT_EQ(RunParamctl(get).out, "values: operationMode=1\n");
    ASSERT_EQ(RunParamctl(client + "index 1").code, 0);
    EXPECT_EQ(RunParamctl(get).out, "values: operationMode=9\n");
    ASSERT_EQ(RunParamctl(client + "index 0").code, 0);
    EXPECT_EQ(console.Stop(), 0);
}

} // namespace
