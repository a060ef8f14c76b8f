// SPDX-License-Identifier: Apache-2.0
// paramctl console: its JSON API over HTTP on loopback, for a file and for a live tuning server.
#include <string>
#include <vector>

#include <httplib.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/common/gammatreefile.h"
#include "tests/common/tempfile.h"
#include "tests/paramctl/paramctlchild.h"
#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::json;
using ParamCtlTest::Packed;
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

/// A request, and the status and the value at pointer its answer must have ("absent": none).
struct Ask
{
    char const* method;
    std::string target;
    std::string body;
    int status;
    std::string pointer;
    Json expected;
};

/// A console started on 127.0.0.1, port 0, and an HTTP client for it.
class Console
{
public:
    explicit Console(std::string const& arguments)
        : m_child("console --bind 127.0.0.1 --port 0 " + arguments)
    {
        if (int const port = m_child.NumberAfter("listening on http://127.0.0.1:")) {
            m_client = std::make_unique<httplib::Client>("127.0.0.1", port);
            m_client->set_connection_timeout(5);
            m_client->set_read_timeout(5);
        }
    }

    bool Up() const { return m_client != nullptr; }
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

    /// The content type of the answer to a GET; empty when no answer came.
    std::string ContentType(std::string const& target)
    {
        httplib::Result result = m_client->Get(target);
        return result ? result->get_header_value("Content-Type") : "";
    }

    /// Sends each request in turn and checks its answer.
    void Expect(std::vector<Ask> const& asks)
    {
        for (Ask const& ask : asks) {
            SCOPED_TRACE(std::string(ask.method) + " " + ask.target + " " + ask.body.substr(0, 80) +
                         " " + ask.pointer);
            auto const [status, text] = Send(ask.method, ask.target, ask.body);
            EXPECT_EQ(status, ask.status) << text;
            Json const answer = Json::parse(text, nullptr, false);
            ASSERT_TRUE(answer.is_object()) << text;
            EXPECT_EQ(answer.value(Json::json_pointer(ask.pointer), Json("absent")), ask.expected);
        }
    }

private:
    ParamctlChild m_child;
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

Ask Get(std::string target, std::string pointer, Json expected)
{
    return {"GET", std::move(target), "", 200, std::move(pointer), std::move(expected)};
}

Ask Put(std::string body, int status, std::string pointer, Json expected)
{
    return {"PUT", "/api/value", std::move(body), status, std::move(pointer), std::move(expected)};
}

constexpr char PreviewHdr[] = "/api/module?branch=Default%7CSensor.0%7CUsecase.Preview%7CFeature1"
                              ".ISPHDR&instance=t2tconfigdata";

/// What a console on the sample reads, with FILE or from a live server without it (the protocol
/// tells no sources).
std::vector<Ask> SampleReads(bool file)
{
    Json const source = file ? Json("Default|Sensor.0|Usecase.Preview") : Json();
    return {
        Get("/api/tree", "/tables/0/modes/0/children/1/children/1/children/0/path",
            "Default|Sensor.1|Usecase.Snapshot|Scene.Night"),
        Get("/api/tree", "/tables/0/modes/0/children/0/children/0/numeric", "0.0|1.0|2.0"),
        Get("/api/tree", "/tables/0/modes/0/modeId", file ? Json(0) : Json()),
        Get("/api/modules?branch=Default%7CSensor.0%7CUsecase.Preview", "/modules/0/source",
            source),
        Get("/api/modules?branch=0.0%7C1.1", "/modules/0/source", file ? Json("Default") : Json()),
        Get(PreviewHdr, "/source", source),
        Get(PreviewHdr, "/members/0/members/0/path", "module_version.major_revision"),
        Get(PreviewHdr, "/members/5/value", "75"),
        Get(PreviewHdr, "/trigger", nullptr),
        Get("/api/module?branch=0.0%7C1.1&instance=t2tconfigdata", "/members/5/value", "60"),
    };
}

/// A value, module and mode the sample does not have: the same answers with FILE and without.
std::vector<Ask> MissingTargets()
{
    return {
        Put(Edit("Default", "nothing", "1"), 404, "/error", "no value nothing in t2tconfigdata"),
        {"GET", "/api/module?branch=Default&instance=nothing", "", 404, "/error",
         "no module nothing in mode Default"},
        {"GET", "/api/modules?branch=Default%7CUsecase.Preview", "", 404, "/error",
         "no mode 'Usecase.Preview' under Default in mode table 0"},
    };
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
        {"--web " + sample.file.Path() + " " + sample.file.Path(), 1, "no console page at"},
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

// An edit through the deepest branch changes the instance that supplies it, and what is saved and
// compared is the edited state.
TEST(ParamctlConsoleTest, FileSessionAnswersEditsSavesAndCompares)
{
    Sample sample;
    Sample compared;
    ParamTest::TempFile saved;
    Console console("--save-to " + saved.Path() + " --compare " + compared.file.Path() + " " +
                    sample.file.Path());
    ASSERT_TRUE(console.Up()) << console.Log();
    std::vector<Ask> asks = {
        Get("/api/session", "/kind", "file"),
        Get("/api/session", "/canSave", true),
        Get("/api/diff", "/same", true),
    };
    for (Ask const& read : SampleReads(true))
        asks.push_back(read);
    std::string const hdrEdit =
        Edit("Default|Sensor.0|Usecase.Preview|Feature1.ISPHDR", "confidenceThreshold", "71");
    std::vector<Ask> const edits = {
        Put(hdrEdit, 200, "/value", "71"),
        Put(hdrEdit, 200, "/source", "Default|Sensor.0|Usecase.Preview"),
        Put(Edit("Default", "downscaleRatio", "\"0.125\""), 200, "/value", "0.125"),
        {"POST", "/api/save", "", 200, "/values", 2},
        Get("/api/diff", "/same", false),
        Get("/api/diff", "/instances/0/values/0/path", "downscaleRatio"),
        Get("/api/diff", "/instances/0/values/0/a", "0.125"),
    };
    asks.insert(asks.end(), edits.begin(), edits.end());
    console.Expect(asks);
    EXPECT_EQ(RunParamctl("get " + saved.Path() +
                          " 'Default|Sensor.0|Usecase.Preview' t2tconfigdata confidenceThreshold")
                  .out,
              "# mode Default|Sensor.0|Usecase.Preview\nconfidenceThreshold=71\n");
    EXPECT_EQ(RunParamctl("verify " + saved.Path()).code, 0);
    EXPECT_EQ(console.Stop(), 0);
}

TEST(ParamctlConsoleTest, TriggerTreeNodesCarryTheirControlVariables)
{
    // Two levels, following control variables 3 and 1, of which the file names only 3: its names
    // are the file's own, which a live session without FILE does not know.
    ParamTest::TempFile file(ParamTest::GammaTreeFile({{2, 3}, {3, 1}, {{3, "drc_gain"}}}));
    std::string const target = "/api/module?branch=Default&instance=gamma16_bps_v2";
    std::string const roots = "varitonal_gamma16_core.mod_gamma16_trigger_data";
    for (bool const withFile : {true, false}) {
        SCOPED_TRACE(withFile ? "with FILE" : "live, without FILE");
        std::unique_ptr<Camera> camera(withFile ? nullptr : new Camera(file.Path()));
        Console console(withFile ? file.Path() : "--live " + camera->live);
        ASSERT_TRUE(console.Up()) << console.Log();
        // The core's list of roots (varitonal_gamma16_core is the module's last member), its
        // second root and the third node below that.
        size_t const core =
            Json::parse(console.Send("GET", target).second, nullptr, false)["members"].size() - 1;
        std::string const root = "/members/" + std::to_string(core) + "/members/0/elements/1";
        std::string const node = root + "/members/2/elements/2";
        Json const named = withFile ? Json("drc_gain") : Json();
        console.Expect({
            Get(target, "/trigger/generation", 1),
            Get(target, "/trigger/path", roots),
            Get(target, "/trigger/levels/0/variable", named),
            Get(target, "/trigger/levels/1/control", 1),
            Get(target, "/trigger/levels/1/variable", nullptr),
            Get(target, root + "/kind", "trigger"),
            Get(target, root + "/level", 0),
            Get(target, root + "/variable", named),
            Get(target, root + "/start", "10.0"),
            Get(target, root + "/end", "20.0"),
            Get(target, root + "/region", nullptr),
            Get(target, node + "/kind", "trigger"),
            Get(target, node + "/level", 1),
            Get(target, node + "/control", 1),
            Get(target, node + "/region", roots + "[1].trigger[2].region"),
        });
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

    std::string const notANumber =
        "\"value\" must be a number, a string holding one, or an array of them";
    console.Expect({
        Put(Edit("Default", "confidenceThreshold", "-1"), 400, "/error",
            "value of t2tconfigdata.confidenceThreshold: '-1' is outside UInt32 (0 to 4294967295)"),
        Put(Edit("Default", "confidenceThreshold", "2.5"), 400, "/error",
            "value of t2tconfigdata.confidenceThreshold: '2.5' is not an integer (UInt32)"),
        Put(Edit("Default", "confidenceThreshold", "\"1;operationMode=7\""), 400, "/error",
            notANumber),
        Put(Edit("Default", "confidenceThreshold", "[1, 2]"), 400, "/error",
            "value of t2tconfigdata.confidenceThreshold: '1,2' is not a number (UInt32)"),
        Put(Edit("Default", "confidenceThreshold", "null"), 400, "/error", notANumber),
        Put(Edit("Default", "confidenceThreshold", "[1, null]"), 400, "/error", notANumber),
        Put("{\"branch\": \"Default\",", 400, "/error", "the body is no JSON object"),
        Put("{\"branch\": 1, \"instance\": \"t2tconfigdata\"}", 400, "/error",
            "\"branch\" must be a string"),
        // Bodies are taken up to 64 KiB.
        Put(std::string(64 * 1024, ' '), 400, "/error", "the body is no JSON object"),
        Put(std::string(64 * 1024 + 1, ' '), 413, "/error", "the request body is too large"),
        Put(Edit("Default|Sensor.7", "confidenceThreshold", "1"), 404, "/error",
            "no mode 'Sensor.7' under Default in mode table 0"),
        {"GET", "/api/modules?table=3&branch=Default", "", 404, "/error",
         "the file has no mode table 3 (it has 1)"},
        {"GET", "/api/modules?table=-1&branch=Default", "", 400, "/error",
         "table needs a mode table index from 0 to 255"},
        {"POST", "/api/save", "", 409, "/error", "no --save-to file was named"},
        {"GET", "/api/diff", "", 409, "/error", "no --compare file was named"},
        {"GET", "/api/nothing", "", 404, "/error", "no such endpoint"},
        {"GET", "/outside", "", 404, "/error", "no such file"},
        {"GET", "/../" + sample.file.Path(), "", 404, "/error", "no such file"},
    });
    console.Expect(MissingTargets());
    EXPECT_EQ(console.Send("GET", PreviewHdr).second, before);
    EXPECT_EQ(console.Send("GET", "/").first, 200);
    EXPECT_EQ(console.ContentType("/"), "text/html; charset=utf-8");
    EXPECT_EQ(console.Stop(), 0);
    unlink((web + "/outside").c_str());
    unlink((web + "/index.html").c_str());
    rmdir(folder);
}

// A file below 6.0.0 is served, but nothing of it is saved: its modules have no names.
TEST(ParamctlConsoleTest, FileBelow600IsServedButNotSaved)
{
    ParamTest::TempFile const old(Packed("version 5.0.0\nbinary-tag old\nmodetable rear\n"
                                         "  path Default|Sensor.0\n"
                                         "instance t2tconfigdata T2TCtrlType mode Default\n"));
    ParamTest::TempFile saved;
    Console console("--save-to " + saved.Path() + " " + old.Path());
    ASSERT_TRUE(console.Up()) << console.Log();
    console.Expect({{"POST", "/api/save", "", 422, "/error",
                     "cannot save the changes: files below 6.0.0 name no module that a build can "
                     "find, so none of their values is tuned"}});
    EXPECT_EQ(console.Stop(), 0);
}

// Edits go through the live server, where every other client sees them, and what other clients
// change is what the console reads, compares with a file and saves.
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
    console.Expect(
        {Get("/api/session", "/live", live),
         Put(Edit("Default|Sensor.0", "confidenceThreshold", "44"), 200, "/value", "44")});
    std::string const client = "client --timeout 5 " + live + " ";
    EXPECT_EQ(RunParamctl(client + "get 'Default|Sensor.0:t2tconfigdata:confidenceThreshold'").out,
              "values: confidenceThreshold=44\n");
    for (char const* change : {"operationMode=3", "module_version.major_revision=5"})
        ASSERT_EQ(RunParamctl(client + "set 'Default:t2tconfigdata' " + change).code, 0);
    std::string const module = "/api/module?branch=Default&instance=t2tconfigdata";
    console.Expect({
        Get(module, "/members/1/value", "3"),
        Get(module, "/members/0/members/0/value", "5"),
        Get("/api/diff?branch=Default", "/a", live),
        Get("/api/diff?branch=Default", "/instances/0/values",
            Json::parse(R"([{"path": "confidenceThreshold", "a": "44", "b": "60"},
                            {"path": "module_version.major_revision", "a": "5", "b": "1"},
                            {"path": "operationMode", "a": "3", "b": "1"}])")),
        {"POST", "/api/save", "", 200, "/values", 3},
    });
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
    console.Expect(SampleReads(false));
    Json const unavailable =
        Json::parse(console.Send("GET", "/api/session").second, nullptr, false)["unavailable"];
    console.Expect({
        Get("/api/session", "/files", Json::array()),
        Get("/api/modules?branch=Default%7CSensor.0%7CUsecase.Preview", "/modules",
            Json::parse(
                R"([{"instance": "versionsA_sw", "source": null, "version": null,
                             "valueAccess": true},
                            {"instance": "t2tconfigdata", "source": null, "version": null,
                             "valueAccess": true}])")),
        Put(Edit("Default|Sensor.0", "confidenceThreshold", "44"), 200, "/value", "44"),
        Put(Edit("Default", "confidenceThreshold", "2.5"), 400, "/error",
            "value of t2tconfigdata.confidenceThreshold: '2.5' is not an integer (UInt32)"),
        // What needs FILE is refused with the reason the page is given.
        {"POST", "/api/save", "", 409, "/error", unavailable["save"]},
        {"GET", "/api/diff", "", 409, "/error", unavailable["diff"]},
    });
    console.Expect(MissingTargets());
    EXPECT_EQ(console.Stop(), 0);
}

TEST(ParamctlConsoleTest, LiveSessionWorksOnTheModeTableItIsAskedFor)
{
    // Two mode tables, each with its own tracker.
    std::string const text = "version 7.0.0\nbinary-tag two-tables\n"
                             "modetable rear\n  path Default|Sensor.0\n"
                             "instance t2tconfigdata T2TCtrlType mode Default\n"
                             "  value operationMode 1\n"
                             "modetable front\n  path Default|Sensor.0\n"
                             "instance t2tconfigdata T2TCtrlType mode Default\n"
                             "  value operationMode 7\n";
    ParamTest::TempFile const file(Packed(text));
    std::string const module = "/api/module?branch=Default&instance=t2tconfigdata&table=";
    Json edit = Json::parse(Edit("Default", "operationMode", "9"));
    edit["table"] = 1;
    // With FILE, and without it: the tables are the server's alike.
    for (bool const withFile : {true, false}) {
        SCOPED_TRACE(withFile ? "with FILE" : "without FILE");
        Camera camera(file.Path());
        ASSERT_FALSE(camera.live.empty()) << camera.server.Log();
        Console console("--live " + camera.live + (withFile ? " " + file.Path() : ""));
        ASSERT_TRUE(console.Up()) << console.Log();
        console.Expect({Get("/api/tree", "/tables/1/name", "front"),
                        Get(module + "0", "/members/1/value", "1"),
                        Get(module + "1", "/members/1/value", "7"),
                        Put(edit.dump(), 200, "/value", "9")});
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
