// The advanced block of the backup jobs report: performance, scripts, images and retention,
// as the product's console shows them.
#include "frame/i18n.h"
#include "products/orb_jobs.h"

namespace {

constexpr size_t COMMAND_SIZE = 4096;

void writePerformance(FILE* out, OrbJob& job) {
    fprintf(out, "      %s\n", _("Advanced:"));
    fprintf(out, "        %s\n", _("Performance:"));
    fprintf(out, "          %s %d%%\n\n", _("Throttling:"), job.integer("settings->io_throttle"));
    fprintf(out, "          [%s]  %s\n", orbTick(job.boolean("settings->save_freespace")),
            _("Save volume free space in images"));
    fprintf(out, "          [%s]  %s\n\n", orbTick(job.boolean("settings->ignore_read_fail")),
            _("Ignore read failures during backup"));
}

struct Script {
    const char* key;
    const char* label;
    // The ticked line of each script ends differently, as the product's console draws them, so
    // that support reads the same block in the log as the customer sees on screen.
    const char* tickedEnd;
    // Only the last script's unticked line closes the block with a blank line.
    const char* untickedEnd;
};

const Script SCRIPTS[] = {
    {"start_job_cmd", N_("Start job script"), "\n\n", "\n"},
    {"pre_snap_cmd", N_("Pre-snapshot script"), "\n\n", "\n"},
    {"post_snap_cmd", N_("Post-snapshot script"), "\n", "\n"},
    {"finish_job_cmd", N_("Finish job script"), "\n", "\n\n"},
};

void writeScripts(FILE* out, OrbJob& job) {
    fprintf(out, "        %s\n", _("Scripts:"));
    fprintf(out, "          %s %d %s\n\n", _("Abort scripts that do not finish in"),
            job.integer("settings->start_job_cmd->timeout") / 60, _("minutes"));
    for (const Script& script : SCRIPTS) {
        char command[COMMAND_SIZE] = {};
        job.text(command, sizeof command, "settings->%s->command", script.key);
        if (command[0] == '\0') {
            fprintf(out, "          [%s]  %s%s", orbTick(false), _(script.label), script.untickedEnd);
            continue;
        }
        fprintf(out, "          [%s]  %s%s", orbTick(true), _(script.label), script.tickedEnd);
        fprintf(out, "                %s\n\n", command);
        fprintf(out, "                [%s]  %s\n\n",
                orbTick(job.boolean("settings->%s->error_failure", script.key)),
                _("Fail backup if script is unsuccessful"));
    }
}

void writeImages(FILE* out, OrbJob& job) {
    fprintf(out, "        %s\n", _("Images:"));
    fprintf(out, "          [%s]  %s\n", orbTick(job.boolean("settings->save_concurrent")),
            _("Save volume images concurrently"));
    fprintf(out, "          [%s]  %s\n", orbTick(job.boolean("settings->auto_exec_missed")),
            _("Immediately run missed backups on restart"));
    fprintf(out, "          [%s]  %s\n", orbTick(job.boolean("settings->use_write_cache")),
            _("Use write cache when saving images"));
    bool split = job.boolean("settings->split_image_files");
    fprintf(out, "          [%s]  %s\n\n", orbTick(split), _("Split image files into smaller files"));
    if (split) {
        fprintf(out, "                %s %d %s\n\n", _("Split file size"),
                job.integer("settings->split_file_size"), _("MB"));
    }
}

void writeRetention(FILE* out, OrbJob& job) {
    fprintf(out, "        %s\n", _("Retention:"));
    if (job.integer("settings->retention") == 0) {
        fprintf(out, "          [%s]  %s\n", orbTick(true), _("Keep all images"));
        fprintf(out, "          [%s]  %s\n", orbTick(false), _("Keep only recent images"));
        return;
    }
    fprintf(out, "          [%s]  %s\n", orbTick(false), _("Keep all images"));
    fprintf(out, "          [%s]  %s\n\n", orbTick(true), _("Keep only recent images"));
    fprintf(out, "               %s %d %s\n\n", _("Retain"), job.integer("settings->retention_sets"),
            _("most recent image sets"));
    fprintf(out, "               [%s]  %s\n", orbTick(job.boolean("settings->keep_all_fulls")),
            _("Keep all full backups (delete only incrementals)"));
    fprintf(out, "               [%s]  %s\n", orbTick(job.boolean("settings->delete_before_full")),
            _("Perform deletions before a full backup"));
}

}  // namespace

void writeOrbJobAdvanced(FILE* out, OrbJob& job) {
    writePerformance(out, job);
    writeScripts(out, job);
    writeImages(out, job);
    writeRetention(out, job);
}
