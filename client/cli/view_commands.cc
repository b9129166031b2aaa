#include <fmt/format.h>

#include "client/cli/commands.h"
#include "client/cli/watch_command.h"
#include "client/core/text_io.h"
#include "client/view/read_view.h"
#include "client/view/select.h"

namespace nyxctl {
namespace {

constexpr char k_show_footer[] =
    R"(On a terminal the columns that fit are shown, the most useful ones first, and no
counters of long lists that are 0; --wide and --all show the rest. Other output
is complete, unless COLUMNS says how wide it may be.
Names, units and texts are those of the dictionary, see nyxctl labels.
With -j the same rows come as one JSON document:
{"ports": [{"port_number": 1, ...}, ...]}.
An id is a UUID or its hex digits, or another name of the object: a port's
number, the name or MAC address of an interface or LIF.

Examples:
  nyxctl show ports
  nyxctl show port 1
  nyxctl show ports --where link_state!=up --columns port_number,vendor_name
  nyxctl show lifs --classic --sort name
  nyxctl show interfaces -j)";

constexpr char k_watch_footer[] =
    R"(Shows a view every few seconds: on a terminal in place, elsewhere one block
after a line with the local time, and with -j one JSON document per line. Ctrl-C
ends it with exit code 0.
With --rates every counter gets a second column, its change per second since the
round before. A counter that went down without wrapping around at its width says
"reset". Nothing is cleared on the device.
When the first round fails, the command ends. A later round that fails is
reported on stderr, and the next one tries again; with --count the exit code is
that of the first failure.

Examples:
  nyxctl watch ports
  nyxctl watch port 1 --rates -n 5
  nyxctl watch pipeline --rates --count 2 -j)";

// A view as an argument of show and watch.
struct view_s {
    std::string name;
    std::string summary;
    std::string example;  // of its arguments
    arguments_t arguments;
    read_view_t read;
};

using views_t = std::vector<view_s>;

view_s list_view(const list_view_s &view) {
    return {view.name, view.help, "", {}, [&view](const given_s &given, shown_s *shown) {
                return read_list_view(given.global, view, view.request, shown, given.has("--rates"));
            }};
}

view_s lifs(const list_view_s &view) {
    return {view.name,
            view.help,
            "",
            {{"--classic", "The classic view: flags, filters, pinned interface", KIND_FLAG}},
            [&view](const given_s &given, shown_s *shown) {
                const list_view_s &chosen = given.has("--classic") ? lifs_classic_view() : view;
                return read_list_view(given.global, chosen, chosen.request, shown);
            }};
}

view_s element_view(const element_view_s &view) {
    return {view.name,
            view.help,
            view.example,
            {{"ID", "Its id or another name of it", KIND_ID, COUNT_ONE, "", {view.name}}},
            [&view](const given_s &given, shown_s *shown) {
                return read_element_view(given.global, view, given.one("ID"), shown);
            }};
}

view_s object_view(const object_view_s &view) {
    return {view.name, view.help, "", {}, [&view](const given_s &given, shown_s *shown) {
                return read_object_view(given.global, view, shown);
            }};
}

view_s sessions() {
    return {sessions_view().name,
            sessions_view().help,
            " 0 15",
            {{"LOW", "First index", KIND_NUMBER},
             {"HIGH", "Last index; the agent decides whether it is included", KIND_NUMBER}},
            [](const given_s &given, shown_s *shown) {
                const std::string request =
                    fmt::format(R"({{"stats_index_low": {}, "stats_index_high": {}}})", given.number("LOW"),
                                given.number("HIGH"));
                return read_list_view(given.global, sessions_view(), request, shown);
            }};
}

view_s tables() {
    return {"tables", "All tables: record sizes, entries", "", {}, [](const given_s &given, shown_s *shown) {
                return read_tables_view(given.global, shown);
            }};
}

view_s table() {
    return {"table",
            "One entry of a table",
            " flow_info k1=7",
            {{"NAME", "The table, see nyxctl show tables", KIND_TABLE},
             {"KEY", "Fields of the key; the others are 0", KIND_KEY_FIELD, COUNT_ANY, "FIELD=VALUE"}},
            [](const given_s &given, shown_s *shown) {
                return read_table_view(given.global, given.one("NAME"), given.all("KEY"), shown);
            }};
}

views_t all_views() {
    views_t views;
    for (const list_view_s &view : list_views()) {
        views.push_back(std::string_view(view.name) == "lifs" ? lifs(view) : list_view(view));
    }
    for (const element_view_s &view : element_views()) {
        views.push_back(element_view(view));
    }
    views.insert(views.end(), {sessions(), tables(), table()});
    for (const object_view_s &view : object_views()) {
        views.push_back(object_view(view));
    }
    return views;
}

std::vector<std::string> divided(const std::string &names) {
    std::vector<std::string> parts;
    for (size_t at = 0; at < names.size();) {
        const size_t comma = std::min(names.find(',', at), names.size());
        parts.push_back(names.substr(at, comma - at));
        at = comma + 1;
    }
    return parts;
}

arguments_t selection_options() {
    return {{"--columns", "These columns, divided by commas, in this order", KIND_TEXT, COUNT_ONE, "A,B"},
            {"--where", "Rows for which this holds; also !=, <, >, and ~ for texts that contain VALUE",
             KIND_TEXT, COUNT_EACH, "COLUMN=VALUE"},
            {"--sort", "In the order of this column", KIND_TEXT, COUNT_ONE, "COLUMN"},
            {"--reverse", "In the opposite order", KIND_FLAG, COUNT_ONE, "", {}, 0, 0, "", "", {"--sort"}},
            {"--wide", "All columns, however wide, and whole values", KIND_FLAG},
            {"--all", "All rows, details and counters that are 0 too", KIND_FLAG}};
}

// The view with what is selected of it.
read_view_t selected(const read_view_t &read) {
    return [read](const given_s &given, shown_s *shown) {
        outcome_s outcome = read(given, shown);
        if (shown->rows.columns.empty()) {
            return outcome;
        }
        const bool all = given.has("--all") || given.global.json || stdout_width() == 0;
        outcome_s selection = select_rows({.columns = divided(given.one("--columns")),
                                           .where = given.all("--where"),
                                           .sort = given.one("--sort"),
                                           .reverse = given.has("--reverse"),
                                           .all = all},
                                          shown);
        if (!selection.ok()) {
            *shown = {};
            return selection;
        }
        return outcome;
    };
}

outcome_s show(const given_s &given, const read_view_t &read) {
    shown_s shown;
    outcome_s outcome = read(given, &shown);
    if (shown.rows.columns.empty() || (shown.rows.rows.empty() && !outcome.ok())) {
        return outcome;
    }
    const bool wide = given.has("--wide");
    const outcome_s written = given.global.json
                                  ? write_rows(given.global, shown.rows)
                                  : write_stdout(text_for_people(shown, wide ? 0 : stdout_width(), wide));
    return written.ok() ? outcome : written;
}

// "sessions 0 15"
std::string title(const view_s &view, const given_s &given) {
    std::string title = view.name;
    for (const argument_s &argument : view.arguments) {
        if (!argument.is_option()) {
            title += fmt::format(" {}", fmt::join(given.all(argument.name), " "));
        }
    }
    return title;
}

command_s command_of(const std::string &group, const view_s &view) {
    const std::string path = group + " " + view.name;
    return {path, view.summary, "Example:\n  nyxctl " + path + view.example, view.arguments};
}

}  // namespace

commands_t view_commands() {
    const views_t views = all_views();
    commands_t commands = {{"show", "Show what the agent has", k_show_footer, selection_options()}};
    for (const view_s &view : views) {
        commands.push_back(command_of("show", view));
        commands.back().run = [read = selected(view.read)](const given_s &given) {
            return show(given, read);
        };
    }
    commands.push_back({"watch", "Show a view again and again, with rates", k_watch_footer, watch_options()});
    const arguments_t selection = selection_options();
    commands.back().arguments.insert(commands.back().arguments.end(), selection.begin(), selection.end());
    for (const view_s &view : views) {
        commands.push_back(command_of("watch", view));
        commands.back().run = [view](const given_s &given) {
            return watch(given, title(view, given), selected(view.read));
        };
    }
    return commands;
}

}  // namespace nyxctl
