/** tornval serve: the instrument as one web page on this machine. */
#include "Live.h"
#include "LiveCommands.h"
#include "ServeHub.h"
#include "ServePage.h"
#include "Stop.h"
#include "TraceTail.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <httplib.h>
#include <mutex>
#include <sys/random.h>
#include <thread>

namespace host {

namespace {

struct S_SERVE_OPTIONS
{
    uint16_t usPort = 0;
    bool bControl = false;
    S_LIVE_SETTINGS Live;
};

/** Rounds that a page which is opened gets at once. */
constexpr size_t k_uHistory = 600;
constexpr size_t k_uTraceLines = 200;

std::string Token()
{
    std::array<unsigned char, 16> l_aucBytes{};
    if (getrandom(l_aucBytes.data(), l_aucBytes.size(), 0) !=
        static_cast<ssize_t>(l_aucBytes.size())) {
        throw S_FAILURE{k_lExitFile, std::string("no random numbers: ") + std::strerror(errno)};
    }
    std::string l_strToken;
    for (const unsigned char l_ucByte : l_aucBytes) {
        l_strToken += "0123456789abcdef"[l_ucByte >> 4];
        l_strToken += "0123456789abcdef"[l_ucByte & 15];
    }
    return l_strToken;
}

/** Compares without telling by its time how much was right. */
bool IsSame(const std::string& i_strA, const std::string& i_strB)
{
    unsigned l_uDifference = i_strA.size() == i_strB.size() ? 0 : 1;
    for (size_t i = 0; i < std::min(i_strA.size(), i_strB.size()); ++i) {
        l_uDifference |= static_cast<unsigned char>(i_strA[i] ^ i_strB[i]);
    }
    return l_uDifference == 0;
}

std::string Event(const char* i_pszName, const nlohmann::json& i_Data)
{
    return std::string("event: ") + i_pszName +
           "\ndata: " + i_Data.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) +
           "\n\n";
}

/** What all pages see. */
class CPicture
{
public:
    CPicture(const CSession& i_Session, const std::vector<S_LIVE_ROW>& i_vRows, bool i_bControl)
    {
        for (const S_DRIVER& l_Driver : i_Session.Drivers()) {
            m_Start["drivers"].push_back({{"id", l_Driver.ulID},
                                          {"link", l_Driver.strLinkType},
                                          {"words", LinkTypeInWords(l_Driver.strLinkType)},
                                          {"kind", l_Driver.strKind},
                                          {"ready", l_Driver.bReady},
                                          {"reachable", l_Driver.bReachable}});
        }
        m_Start["reasons"] = ReasonDocument(i_Session.RemainingReasons());
        for (const S_LIVE_ROW& l_Row : i_vRows) {
            m_Start["rows"].push_back({{"name", l_Row.strName}, {"unit", l_Row.Unit.Name()}});
        }
        m_Start["control"] = i_bControl;
        m_Acquisition = {{"running", false}, {"error", ""}, {"samples", 0}};
    }

    CServeHub& Hub() { return m_Hub; }

    void Add(const S_LIVE_ROUND& i_Round)
    {
        nlohmann::json l_Values = nlohmann::json::array();
        nlohmann::json l_Errors = nlohmann::json::object();
        for (size_t i = 0; i < i_Round.vValues.size(); ++i) {
            const S_LIVE_VALUE& l_Value = i_Round.vValues[i];
            l_Values.push_back(l_Value.strError.empty() && !l_Value.bRests
                                   ? nlohmann::json(l_Value.dValue)
                                   : nlohmann::json(nullptr));
            if (!l_Value.strError.empty()) {
                l_Errors[std::to_string(i)] = l_Value.strError;
            }
        }
        const nlohmann::json l_Round = {
            {"time", std::chrono::duration<double>(i_Round.Time.time_since_epoch()).count()},
            {"values", l_Values},
            {"errors", l_Errors}};
        const std::lock_guard l_Lock(m_Mutex);
        m_History.push_back({{"time", l_Round["time"]}, {"values", l_Values}});
        if (m_History.size() > k_uHistory) {
            m_History.pop_front();
        }
        m_Hub.Publish(Event("round", l_Round));
    }

    void Add(const S_LIVE_BLOCK& i_Block)
    {
        const std::lock_guard l_Lock(m_Mutex);
        m_Acquisition = {{"running", i_Block.bRunning},
                         {"error", i_Block.strError},
                         {"samples", i_Block.ullFirst + i_Block.ullSamples}};
        nlohmann::json l_Message = m_Acquisition;
        l_Message["first"] = i_Block.ullFirst;
        l_Message["count"] = i_Block.ullSamples;
        l_Message["channels"] = i_Block.vChannels;
        m_Hub.Publish(Event("acquisition", l_Message));
    }

    void ReadTrace()
    {
        const std::lock_guard l_Lock(m_Mutex);
        if (const std::vector<std::string> l_vLines = m_Trace.Read(); !l_vLines.empty()) {
            m_Hub.Publish(Event("trace", l_vLines));
        }
    }

    /** What a page gets first, and its place in the messages that follow. */
    std::optional<std::pair<std::string, uint64_t>> Join()
    {
        const std::lock_guard l_Lock(m_Mutex);
        const auto l_oPlace = m_Hub.Join();
        if (!l_oPlace) {
            return std::nullopt;
        }
        nlohmann::json l_Start = m_Start;
        l_Start["history"] = m_History;
        l_Start["acquisition"] = m_Acquisition;
        l_Start["trace"] = m_Trace.Lines();
        return std::pair(Event("start", l_Start), *l_oPlace);
    }

private:
    std::mutex m_Mutex; // guards what follows; the hub guards itself
    nlohmann::json m_Start = {{"drivers", nlohmann::json::array()},
                              {"rows", nlohmann::json::array()}};
    std::deque<nlohmann::json> m_History;
    nlohmann::json m_Acquisition;
    CTraceTail m_Trace{LogFile(), k_uTraceLines};
    CServeHub m_Hub;
};

/** The server: who may ask, and what is answered. */
class CPageServer
{
public:
    CPageServer(CPicture& io_Picture, CLive& io_Live, bool i_bControl)
        : m_Picture(io_Picture), m_Live(io_Live), m_bControl(i_bControl)
    {
        // A listener keeps a thread; the rest is answered beside them.
        m_Server.new_task_queue = [] {
            return new httplib::ThreadPool(CServeHub::k_uMaxListeners + 4);
        };
        m_Server.set_keep_alive_max_count(1);
        m_Server.set_read_timeout(5);
        // A page that does not take what is sent is dropped.
        m_Server.set_write_timeout(2);
        m_Server.set_payload_max_length(1024);
        m_Server.set_default_headers(
            {{"Cache-Control", "no-store"},
             {"Content-Security-Policy",
              "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; "
              "img-src 'self' data:; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
             {"Cross-Origin-Resource-Policy", "same-origin"},
             {"Referrer-Policy", "no-referrer"},
             {"X-Content-Type-Options", "nosniff"}});
        m_Server.set_pre_routing_handler(
            [this](const httplib::Request& i_Request, httplib::Response& o_Response) {
                return Admit(i_Request, o_Response);
            });
        for (const S_PAGE_FILE& l_File : PageFiles()) {
            m_Server.Get(l_File.pszPath,
                         [this, &l_File](const httplib::Request&, httplib::Response& o_Response) {
                             std::string l_strContent(l_File.strContent);
                             // The page's own parts are asked for with the token too.
                             for (size_t l_uAt = 0; (l_uAt = l_strContent.find("@TOKEN@", l_uAt)) !=
                                                    std::string::npos;) {
                                 l_strContent.replace(l_uAt, 7, m_strToken);
                             }
                             o_Response.set_content(l_strContent, l_File.pszType);
                         });
        }
        m_Server.Get("/events", [this](const httplib::Request&, httplib::Response& o_Response) {
            SendEvents(o_Response);
        });
        m_Server.Post("/start", [this](const httplib::Request&, httplib::Response& o_Response) {
            Control(o_Response, [&] { return m_Live.WantAcquisition(true); });
        });
        m_Server.Post("/stop", [this](const httplib::Request&, httplib::Response& o_Response) {
            Control(o_Response, [&] { return m_Live.WantAcquisition(false); });
        });
    }
    CPageServer(const CPageServer&) = delete;
    CPageServer& operator=(const CPageServer&) = delete;
    ~CPageServer() { End(); }

    /** @return the address of the page. @throws S_FAILURE. */
    std::string Begin(uint16_t i_usPort)
    {
        const int l_lPort = i_usPort == 0 ? m_Server.bind_to_any_port("127.0.0.1")
                            : m_Server.bind_to_port("127.0.0.1", i_usPort) ? i_usPort
                                                                           : -1;
        if (l_lPort <= 0) {
            throw S_FAILURE{k_lExitFile,
                            "port " + std::to_string(i_usPort) + " of 127.0.0.1 cannot be had"};
        }
        m_strPort = std::to_string(l_lPort);
        m_Thread = std::thread([this] { m_Server.listen_after_bind(); });
        return "http://127.0.0.1:" + m_strPort + "/?token=" + m_strToken;
    }

    void End()
    {
        m_Picture.Hub().Close();
        m_Server.stop();
        if (m_Thread.joinable()) {
            m_Thread.join();
        }
    }

private:
    using E_ROUTE = httplib::Server::HandlerResponse;

    static E_ROUTE Refuse(httplib::Response& o_Response, int i_lStatus, const char* i_pszWords)
    {
        o_Response.status = i_lStatus;
        o_Response.set_content(std::string(i_pszWords) + "\n", "text/plain");
        return E_ROUTE::Handled;
    }

    E_ROUTE Admit(const httplib::Request& i_Request, httplib::Response& o_Response) const
    {
        // A foreign page may send requests here under a name of its own.
        const std::string l_strHost = i_Request.get_header_value("Host");
        if (l_strHost != "127.0.0.1:" + m_strPort && l_strHost != "localhost:" + m_strPort) {
            return Refuse(o_Response, 403, "this is no name of this server");
        }
        if (i_Request.has_header("Origin") &&
            i_Request.get_header_value("Origin") != "http://" + l_strHost) {
            return Refuse(o_Response, 403, "another page's requests are not answered");
        }
        if (!IsSame(i_Request.get_param_value("token"), m_strToken)) {
            return Refuse(o_Response, 403, "the token is missing or wrong");
        }
        return E_ROUTE::Unhandled;
    }

    template <typename F>
    void Control(httplib::Response& o_Response, F&& i_fnControl)
    {
        if (!m_bControl) {
            Refuse(o_Response, 403, "this page only looks; tornval serve --control lets it act");
        } else if (!i_fnControl()) {
            Refuse(o_Response, 409, "there is no board");
        } else {
            o_Response.set_content("done\n", "text/plain");
        }
    }

    void SendEvents(httplib::Response& o_Response)
    {
        auto l_oJoined = m_Picture.Join();
        if (!l_oJoined) {
            Refuse(o_Response, 503, "too many pages are open");
            return;
        }
        auto l_pStart = std::make_shared<std::string>(std::move(l_oJoined->first));
        auto l_pPlace = std::make_shared<uint64_t>(l_oJoined->second);
        o_Response.set_chunked_content_provider(
            "text/event-stream",
            [this, l_pStart, l_pPlace](size_t, httplib::DataSink& io_Sink) {
                if (!l_pStart->empty()) {
                    const std::string l_strStart = std::move(*l_pStart);
                    l_pStart->clear();
                    return io_Sink.write(l_strStart.data(), l_strStart.size());
                }
                std::shared_ptr<const std::string> l_pMessage;
                switch (m_Picture.Hub().Next(*l_pPlace, l_pMessage, std::chrono::seconds(1))) {
                case CServeHub::E_NEXT::Message:
                    return io_Sink.write(l_pMessage->data(), l_pMessage->size());
                case CServeHub::E_NEXT::Nothing:
                    return io_Sink.write(":\n\n", 3); // whether anybody still listens
                case CServeHub::E_NEXT::Behind:
                case CServeHub::E_NEXT::Closed:
                    break;
                }
                return false;
            },
            [this](bool) { m_Picture.Hub().Leave(); });
    }

    CPicture& m_Picture;
    CLive& m_Live;
    const bool m_bControl;
    const std::string m_strToken = Token();
    std::string m_strPort;
    httplib::Server m_Server;
    std::thread m_Thread;
};

void RunServe(CProgram& io_Program, const S_SERVE_OPTIONS& i_Options)
{
    const CSession l_Session(io_Program.Options());
    const std::vector<S_LIVE_ROW> l_vRows = LiveRows(l_Session, i_Options.Live);
    for (const S_DRIVER& l_Driver : l_Session.Drivers()) {
        Announce(io_Program, l_Driver);
    }
    io_Program.TellReasons(l_Session.RemainingReasons());
    CPicture l_Picture(l_Session, l_vRows, i_Options.bControl);
    CLive l_Live(
        l_vRows, i_Options.Live,
        [&l_Picture](const S_LIVE_ROUND& i_Round) { l_Picture.Add(i_Round); },
        [&l_Picture](const S_LIVE_BLOCK& i_Block) { l_Picture.Add(i_Block); });
    CPageServer l_Server(l_Picture, l_Live, i_Options.bControl);
    io_Program.Print(l_Server.Begin(i_Options.usPort) + "\n");
    while (StopSignal() == 0) {
        l_Picture.ReadTrace();
        SleepUnlessStopped(std::chrono::milliseconds(250));
    }
    l_Server.End();
    ThrowIfStopped("the page is gone");
}

} // namespace

void AddServeCommand(CCommand i_Parent, CProgram& io_Program)
{
    auto [l_Serve, l_Options] = io_Program.AddCommand(
        i_Parent, "serve",
        "Shows the instrument as a web page on this machine, live, and prints its address.\n"
        "Ctrl-C ends it. Only who has the address with its token sees the page",
        RunServe);
    l_Serve.Remove({"--json", "--progress"});
    l_Serve.Option("--port", l_Options.usPort, "port of 127.0.0.1; any free one without it");
    l_Serve.Flag("--control", l_Options.bControl,
                 "let the page start and stop an acquisition, not only look");
    AddLiveOptions(l_Serve, l_Options.Live);
}

} // namespace host
