// zephonctl: the service from the command line.
#include <cstdio>
#include <exception>
#include <functional>
#include <string>

#include <CLI/CLI.hpp>

#include "cli/Commands.h"
#include "core/base/Constants.h"

namespace {

using namespace zephonctl;

constexpr const char* description =
    R"(Speaks to a Zephon service, here or on another machine.

First steps:
  zephonctl health                                      is the service there, and ready?
  zephonctl say "Gate four is closing" -l en            hear a line
  zephonctl say "Gate four is closing" -l en -o gate.wav
  zephonctl prebake lines.csv                           speak a table of lines ahead
  zephonctl COMMAND --help                              options and examples of a command)";

constexpr const char* closing = R"(
Exit codes:
  0 done            1 not all in order: degraded health, a failed self test, lines not baked
  2 wrong usage     3 nobody answers at the address     4 the time is over
  5 refused by the service, with its word and message
  6 the answer was cut off or not understood            7 no file written, or clip not played

Environment:
  ZEPHON_URL        address of the service, where --url is not given; several with commas
)";

// One command: its options live here, as they are filled when the command line is read.
struct Program {
    CLI::App app{description, "zephonctl"};
    Common common;
    SayOptions sayOptions;
    PrebakeOptions prebakeOptions;
    CloneOptions cloneOptions;
    BindOptions bindOptions;
    ExportOptions exportOptions;
    StatsOptions statsOptions;
    LogOptions logOptions;
    zephon::Line testLine;
    std::string removedVoice;
    std::string importedFile;
    std::function<int()> run;

    Program() {
        app.set_version_flag("--version", std::string(ZEPHO::version));
        app.require_subcommand(1);
        app.fallthrough();
        app.footer(closing);
        app.add_option("--url", common.urls,
                       "Address of the service (http://127.0.0.1:17150). Commands about voices and "
                       "state take several")
            ->envname("ZEPHON_URL")
            ->delimiter(',')
            ->take_all()
            ->allow_extra_args(false);
        app.add_flag("--json", common.json, "Print JSON for programs");
        app.add_option("--timeout", common.timeoutSeconds, "Seconds that an answer may take (600)")
            ->check(CLI::Range(0.1, 86400.0));
        addSay();
        addPrebake();
        addVoices();
        addPacks();
        addState();
    }

    CLI::App* command(const std::string& name, const std::string& text, std::function<int()> what,
                      const std::string& examples) {
        CLI::App* sub = app.add_subcommand(name, text);
        sub->footer("\nExamples:\n" + examples);
        sub->final_callback([this, what = std::move(what)] { run = what; });
        return sub;
    }

    static void addBinding(CLI::App* sub, std::string& airline, std::string& language,
                           std::string& gender) {
        sub->add_option("-a,--airline", airline, "Three-letter code of the airline");
        sub->add_option("-l,--language", language, "Language, such as zh or en");
        sub->add_option("-g,--gender", gender, "female or male")
            ->check(CLI::IsMember({"female", "male", "default"}));
    }
    static void addLine(CLI::App* sub, zephon::Line& line) {
        addBinding(sub, line.airline, line.language, line.gender);
        sub->add_option("--voice", line.voice, "Id of a voice, instead of a bound one");
        sub->add_option("--style", line.style, "How to speak, such as calm");
        sub->add_option("--speed", line.speed, "0.5 to 2")->check(CLI::Range(0.5, 2.0));
        sub->add_option("--sample-rate", line.sampleRate, "Hertz of the audio")
            ->check(CLI::Range(0, 384000));
        sub->add_option("--seed", line.seed, "Another seed, another reading");
    }

    void addSay() {
        CLI::App* sub = command(
            "say", "Speak one line", [this] { return say(common, sayOptions); },
            "  zephonctl say \"Flight CA 981 is now boarding\" -a CCA -l en -g female -o out.wav\n"
            "  echo \"Last call\" | zephonctl say - -l en         text from stdin, heard at once\n"
            "  zephonctl say \"Gate 4\" -o - | sox - -d           audio to another program");
        sub->add_option("text", sayOptions.line.text, "What to speak; - reads stdin")->required();
        addLine(sub, sayOptions.line);
        sub->add_flag("--urgent", sayOptions.line.urgent, "Overtake waiting lines");
        sub->add_option("-o,--output", sayOptions.output,
                        "File for the WAV, - for stdout; without it the line is played");
        sub->add_option("--etag", sayOptions.heldTag,
                        "Tag of the clip you hold: nothing comes if it is still right");
    }

    void addPrebake() {
        CLI::App* sub = command(
            "prebake", "Speak a table of lines into the cache",
            [this] { return prebake(common, prebakeOptions); },
            "  zephonctl prebake lines.csv -l en -g female\n"
            "  zephonctl prebake lines.csv --json > report.json\n\n"
            "The table is CSV with a header row. Columns: text, and any of airline, language,\n"
            "gender, voice, style, speed, sample_rate, seed. Options stand in for empty fields.\n\n"
            "  text,airline,language,gender\n"
            "  \"Flight CA 981, final call\",CCA,en,female\n\n"
            "It ends when no line waits in the service and each line of the table is a hit. Lines\n"
            "that cannot be spoken are listed with the reason, and the exit code is 1.");
        sub->add_option("file", prebakeOptions.file, "CSV file; - reads stdin")->required();
        addLine(sub, prebakeOptions.preset);
        sub->add_option("--batch", prebakeOptions.batch,
                        "Lines of one order (100); 1 where a balancer spreads lines over services")
            ->check(CLI::Range(1, 10000));
        sub->add_option("--node", prebakeOptions.nodes,
                        "Address of each service behind a balancer, to count waiting lines")
            ->take_all()
            ->allow_extra_args(false);
        sub->add_option("--interval", prebakeOptions.intervalSeconds,
                        "Seconds between two looks (0.5)")
            ->check(CLI::Range(0.01, 3600.0));
    }

    void addVoices() {
        command(
            "voices", "List the voices", [this] { return listVoices(common); },
            "  zephonctl voices\n  zephonctl voices --json | jq -r '.voices[].id'");
        CLI::App* removing = command(
            "remove", "Remove a voice, its recordings and its bindings",
            [this] { return removeVoice(common, removedVoice); },
            "  zephonctl remove v-0123456789ab\n  zephonctl remove \"Desk\"");
        removing->add_option("voice", removedVoice, "Id or name of the voice")->required();

        CLI::App* cloning = command(
            "clone", "Make a voice of recordings", [this] { return clone(common, cloneOptions); },
            "  zephonctl clone \"Desk\" -l en -g female --clip desk.wav --text \"one two three\"\n"
            "  zephonctl clone \"Desk\" --clip a.wav --text \"one\" --clip b.mp3 --text \"two\"\n"
            "  zephonctl clone \"Desk\" -l en -g female -a CCA --clip desk.wav --text \"one\" \\\n"
            "      --url http://node1:17150 --url http://node2:17150     the same on two nodes");
        cloning->add_option("name", cloneOptions.order.display, "Name of the voice")->required();
        cloning
            ->add_option("--clip", cloneOptions.clips,
                         "Recording: WAV, MP3 or Ogg Vorbis, best of 5 to 30 seconds")
            ->required()
            ->take_all()
            ->allow_extra_args(false);
        cloning->add_option("--text", cloneOptions.texts, "What is said in it, one per --clip")
            ->required()
            ->take_all()
            ->allow_extra_args(false);
        addBinding(cloning, cloneOptions.airline, cloneOptions.order.language,
                   cloneOptions.order.gender);
        cloning->add_option("--style", cloneOptions.order.style, "The voice's own style");
        cloning->add_option("--note", cloneOptions.order.note, "Anything to remember");

        CLI::App* binding = command(
            "bind", "Bind a voice, or list what is bound",
            [this] { return bind(common, bindOptions); },
            "  zephonctl bind                                          list all bindings\n"
            "  zephonctl bind -a CCA -l zh -g female --voice \"Desk\"    by name or by id\n"
            "  zephonctl bind -a CCA -l zh -g female --remove\n"
            "  zephonctl bind --default -l en -g male --voice \"Desk\"   for lines without airline");
        addBinding(binding, bindOptions.airline, bindOptions.language, bindOptions.gender);
        binding->add_option("--voice", bindOptions.voice, "Id or name of the voice");
        binding->add_flag("--default", bindOptions.isDefault, "For lines without an airline");
        binding->add_flag("--remove", bindOptions.remove, "Take the binding away");
    }

    void addPacks() {
        CLI::App* pack = app.add_subcommand("pack", "Carry voices in clone packs (.cln)");
        pack->require_subcommand(1);
        pack->footer(
            "\nExamples:\n"
            "  zephonctl pack export voices.cln --data-root ~/.local/share/Zephon\n"
            "  zephonctl pack import voices.cln --url http://node1:17150 --url http://node2:17150\n\n"
            "A service does not hand out recordings, so an export reads the files of a data root\n"
            "on this machine. An import clones each voice over HTTP, and binds it as the pack says.");
        CLI::App* importing =
            pack->add_subcommand("import", "Clone and bind the voices of a pack on each --url");
        importing->add_option("file", importedFile, "The pack")->required();
        importing->final_callback(
            [this] { run = [this] { return importPack(common, importedFile); }; });
        CLI::App* exporting =
            pack->add_subcommand("export", "Write the bound voices of a data root into a pack");
        exporting->add_option("file", exportOptions.file, "The pack")->required();
        exporting->add_option("--data-root", exportOptions.dataRoot,
                              "Data root of the service ($ZEPHO_HOME, else the user's own)");
        exporting
            ->add_option("--voice", exportOptions.voices,
                         "Id of a voice: these voices alone, without bindings")
            ->take_all()
            ->allow_extra_args(false);
        exporting->final_callback(
            [this] { run = [this] { return exportPack(common, exportOptions); }; });
    }

    void addState() {
        command(
            "health", "Tell whether the service is ready", [this] { return health(common); },
            "  zephonctl health || echo \"not ready\"\n"
            "  zephonctl health --json --url http://desk:17150");
        CLI::App* test = command(
            "selftest", "Speak a real line and tell which step fails",
            [this] { return selfTest(common, testLine); },
            "  zephonctl selftest\n  zephonctl selftest -a CCA -l zh -g female --text 请登机");
        test->add_option("--text", testLine.text, "The line to speak");
        addBinding(test, testLine.airline, testLine.language, testLine.gender);

        CLI::App* counting = command(
            "stats", "Show the counters", [this] { return stats(common, statsOptions); },
            "  zephonctl stats\n"
            "  zephonctl stats --watch            every two seconds until Ctrl-C\n"
            "  zephonctl stats --watch 0.5 --count 10 --json");
        counting
            ->add_option("--watch", statsOptions.watchSeconds, "Again and again: seconds between")
            ->expected(0, 1)
            ->default_str("2")
            ->check(CLI::Range(0.01, 86400.0));
        counting->add_option("--count", statsOptions.count, "End after so many looks");

        CLI::App* logging = command(
            "log", "Show the service's log", [this] { return log(common, logOptions); },
            "  zephonctl log --lines 50\n  zephonctl log --follow");
        logging->add_option("--lines", logOptions.lines, "How many of the last lines (200)")
            ->check(CLI::Range(1, 2000));
        logging->add_flag("-f,--follow", logOptions.follow, "Go on with new lines until Ctrl-C");
    }
};

}  // namespace

int main(int count, char** words) {
    Program program;
    try {
        program.app.parse(count, words);
    } catch (const CLI::ParseError& failure) {
        return program.app.exit(failure) == 0 ? done : wrongUsage;
    }
    if (program.common.urls.empty()) program.common.urls.emplace_back("http://127.0.0.1:17150");
    try {
        return program.run();
    } catch (const Failure& failure) {
        std::fprintf(stderr, "zephonctl: %s\n", failure.text.c_str());
        return failure.code;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "zephonctl: %s\n", failure.what());
        return outputFailed;
    }
}
