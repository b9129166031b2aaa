#include "client/cli/show_commands.h"

#include "base/nearest_names.h"
#include "client/core/text_io.h"
#include "client/view/read_view.h"

namespace nyxctl {
namespace {

using request_t = std::shared_ptr<view_request_s>;

constexpr char k_show_footer[] =
    R"(With -j the same rows come as one JSON document: {"ports": [{"port_number": 1, ...}, ...]}.
An id is a UUID or its hex digits, or what people call the object: a port's number, the name or MAC
address of an interface or LIF.

Examples:
  nyxctl show ports
  nyxctl show port 1
  nyxctl show lifs --classic
  nyxctl show table flow_info k1=7
  nyxctl show interfaces -j)";

CLI::App *add_view(CLI::App *parent, const std::string &name, const std::string &help,
                   const std::string &arguments) {
    const std::string words = parent->get_name() + " " + name + arguments;
    return add_command(parent, name, help, "Example:\n  nyxctl " + words);
}

void add_lists(CLI::App *parent, const request_t &request) {
    for (const list_view_s &view : list_views()) {
        CLI::App *command = add_view(parent, view.name, view.help, "");
        const list_view_s *classic = std::string_view(view.name) == "lifs" ? &lifs_classic_view() : nullptr;
        if (classic) {
            command->add_flag("--classic", request->classic,
                              "The classic view: flags, filters, pinned interface");
        }
        command->callback([request, classic, plain = &view] {
            const list_view_s *chosen = classic && request->classic ? classic : plain;
            request->words = chosen->name;
            request->read = [chosen](const global_options_s &global, shown_s *shown) {
                return read_list_view(global, *chosen, chosen->request, shown);
            };
        });
    }
}

void add_objects(CLI::App *parent, const request_t &request) {
    for (const object_view_s &view : object_views()) {
        add_view(parent, view.name, view.help, "")->callback([request, chosen = &view] {
            request->words = chosen->name;
            request->read = [chosen](const global_options_s &global, shown_s *shown) {
                return read_object_view(global, *chosen, shown);
            };
        });
    }
}

void add_elements(CLI::App *parent, const request_t &request) {
    for (const element_view_s &view : element_views()) {
        CLI::App *command = add_view(parent, view.name, view.help, view.example);
        command->add_option("ID", request->name, "Its id, or what people call it")->required();
        command->callback([request, chosen = &view] {
            request->words = chosen->name + (" " + request->name);
            request->read = [name = request->name, chosen](const global_options_s &global, shown_s *shown) {
                return read_element_view(global, *chosen, name, shown);
            };
        });
    }
}

void add_sessions(CLI::App *parent, const request_t &request) {
    const list_view_s *view = &sessions_view();
    CLI::App *command = add_view(parent, view->name, view->help, " 0 15");
    command->add_option("LOW", request->low, "First index")->required();
    command->add_option("HIGH", request->high, "Last index; whether it belongs to the range is the agent's")
        ->required();
    command->callback([request, view] {
        const std::string low = std::to_string(request->low);
        const std::string high = std::to_string(request->high);
        request->words = "sessions " + low + " " + high;
        request->read = [view, low, high](const global_options_s &global, shown_s *shown) {
            const std::string json =
                R"({"stats_index_low": )" + low + R"(, "stats_index_high": )" + high + "}";
            return read_list_view(global, *view, json, shown);
        };
    });
}

void add_tables(CLI::App *parent, const request_t &request) {
    CLI::App *tables = add_view(parent, "tables", "All tables: record sizes, entries", "");
    tables->callback([request] {
        request->words = "tables";
        request->read = read_tables_view;
    });
    CLI::App *table = add_view(parent, "table", "One entry of a table", " flow_info k1=7");
    table->add_option("NAME", request->name, "The table, see nyxctl show tables")->required();
    table->add_option("KEY", request->key_words, "Fields of the key; those left out are 0")
        ->type_name("key=value");
    table->callback([request] {
        request->words = "table " + request->name;
        request->read = [name = request->name, keys = request->key_words](const global_options_s &global,
                                                                          shown_s *shown) {
            return read_table_view(global, name, keys, shown);
        };
    });
}

outcome_s unknown_view(const CLI::App *parent, const std::vector<std::string> &words) {
    std::vector<std::string> names;
    std::string all;
    for (const CLI::App *view : parent->get_subcommands([](const CLI::App *) { return true; })) {
        names.push_back(view->get_name());
        all += (all.empty() ? "" : ", ") + view->get_name();
    }
    std::string text = parent->get_name() + ": no view is named";
    if (!words.empty()) {
        text = parent->get_name() + ": unexpected \"" + words.front() + "\"" +
               base::nearest_names_text(words.front(), names);
    }
    return usage_failure(text + "; views: " + all + "; see nyxctl " + parent->get_name() + " --help");
}

outcome_s run_show(const global_options_s &global, const view_request_s &request) {
    shown_s shown;
    outcome_s outcome = request.read(global, &shown);
    if (shown.rows.columns.empty() || (shown.rows.rows.empty() && !outcome.ok())) {
        return outcome;
    }
    const std::string text =
        global.json ? indented(rows_to_json(shown.rows)) + "\n" : rows_to_text(rows_for_people(shown.rows));
    const outcome_s written = write_stdout(text);
    return written.ok() ? outcome : written;
}

}  // namespace

void add_views(CLI::App *parent, context_s *context, const request_t &request,
               const std::function<outcome_s()> &run) {
    add_lists(parent, request);
    add_elements(parent, request);
    add_sessions(parent, request);
    add_tables(parent, request);
    add_objects(parent, request);
    // What is no view, and words behind one: refused by unknown_view(), which knows the nearest names.
    parent->add_option("VIEW", request->unexpected)->group("");
    parent->callback([parent, context, request, run] {
        const bool refused = !request->read || !request->unexpected.empty();
        context->run =
            refused ? [parent, request] { return unknown_view(parent, request->unexpected); } : run;
    });
}

void add_show_commands(CLI::App *app, context_s *context) {
    const auto request = std::make_shared<view_request_s>();
    CLI::App *command = add_command(app, "show", "Show what the agent has", k_show_footer);
    add_views(command, context, request, [context, request] { return run_show(context->global, *request); });
}

}  // namespace nyxctl
