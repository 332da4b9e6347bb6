/* Times whole processes, interleaved: every round runs each contender once,
 * starting with a different one each round, with standard output on a pipe
 * that this program drains (as a web server drains a CGI program). The first
 * contender is the baseline. Load from elsewhere on the machine falls on all
 * contenders alike, so ratios taken within a batch are steadier than times.
 *
 *   timeit BATCHES ROUNDS -- NAME [VAR=value...] PROGRAM [ARG...] [-- NAME ...]...
 *
 * The rounds come in batches; in each batch every contender's median time is
 * divided by the baseline's. Prints one line per contender:
 *   NAME median_us peak_rss_kib bytes RATIO,RATIO,...
 * where median_us is over all runs and there is one ratio per batch (all 1
 * for the baseline), so that any two contenders can be compared batch by
 * batch: the ratio of their ratios. Exits with status 1 when a contender
 * fails, writes a different number of bytes from one run to the next, or runs
 * longer than 60 seconds. */
#define _GNU_SOURCE
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

extern char** environ;

#define MAX_CONTENDERS 8
#define LIMIT_MS 60000

struct contender {
    const char* name;
    char** argv;
    char** envp;
    double* times;  /* all runs */
    double* batch;  /* the runs of the current batch */
    double* ratios; /* one per batch */
    long peakRss;
    long long bytes;
};

static double now(void) {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec * 1e6 + t.tv_nsec / 1e3;
}

static int compare(const void* a, const void* b) {
    double x = *(const double*)a, y = *(const double*)b;
    return x < y ? -1 : x > y;
}

static double median(double* values, int count) {
    qsort(values, (size_t)count, sizeof *values, compare);
    return count % 2 ? values[count / 2] : (values[count / 2 - 1] + values[count / 2]) / 2;
}

/* One run: the time from spawning to reaping, in microseconds, or -1. */
static double runOnce(struct contender* c, long long* bytes, long* rss) {
    static char sink[1 << 20];
    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0)
        return -1;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    double start = now();
    pid_t pid;
    int failed = posix_spawn(&pid, c->argv[0], &actions, NULL, c->argv, c->envp);
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    if (failed) {
        close(out[0]);
        return -1;
    }
    *bytes = 0;
    for (;;) {
        struct pollfd p = {out[0], POLLIN, 0};
        int left = (int)(LIMIT_MS - (now() - start) / 1000);
        if (left <= 0 || poll(&p, 1, left) == 0) {
            kill(pid, SIGKILL);
            break;
        }
        ssize_t n = read(out[0], sink, sizeof sink);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        *bytes += n;
    }
    close(out[0]);
    int status;
    struct rusage usage;
    while (wait4(pid, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    double elapsed = now() - start;
    *rss = usage.ru_maxrss;
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return -1;
    return elapsed;
}

int main(int argc, char** argv) {
    if (argc < 5 || strcmp(argv[3], "--") != 0) {
        fprintf(stderr,
                "usage: timeit BATCHES ROUNDS -- NAME [VAR=value...] PROGRAM [ARG...] [-- ...]\n");
        return 2;
    }
    int batches = atoi(argv[1]);
    int rounds = atoi(argv[2]);
    if (batches < 1 || rounds < 1)
        return 2;
    struct contender cs[MAX_CONTENDERS];
    int count = 0;
    int environCount = 0;
    while (environ[environCount] != NULL)
        ++environCount;
    for (int i = 3; i < argc;) {
        if (strcmp(argv[i], "--") != 0 || i + 2 >= argc || count == MAX_CONTENDERS)
            return 2;
        argv[i] = NULL; /* ends the previous contender's argument list */
        struct contender* c = &cs[count++];
        memset(c, 0, sizeof *c);
        c->name = argv[i + 1];
        /* The contender's own variables go first: lookups take the first match. */
        c->envp = calloc((size_t)(environCount + argc), sizeof(char*));
        int e = 0;
        i += 2;
        while (i < argc && strchr(argv[i], '=') != NULL && argv[i][0] != '/')
            c->envp[e++] = argv[i++];
        memcpy(c->envp + e, environ, (size_t)environCount * sizeof(char*));
        c->argv = &argv[i];
        while (i < argc && strcmp(argv[i], "--") != 0)
            ++i;
        c->times = calloc((size_t)(batches * rounds), sizeof(double));
        c->batch = calloc((size_t)rounds, sizeof(double));
        c->ratios = calloc((size_t)batches, sizeof(double));
        c->bytes = -1;
    }
    for (int b = 0; b < batches; ++b) {
        for (int r = 0; r < rounds; ++r) {
            int turn = b * rounds + r;
            for (int k = 0; k < count; ++k) {
                struct contender* c = &cs[(turn + k) % count];
                long long bytes;
                long rss;
                double t = runOnce(c, &bytes, &rss);
                if (t < 0) {
                    fprintf(stderr, "timeit: %s failed\n", c->name);
                    return 1;
                }
                if (c->bytes >= 0 && bytes != c->bytes) {
                    fprintf(stderr, "timeit: %s wrote %lld bytes, before %lld\n", c->name, bytes,
                            c->bytes);
                    return 1;
                }
                c->bytes = bytes;
                c->times[turn] = t;
                c->batch[r] = t;
                if (rss > c->peakRss)
                    c->peakRss = rss;
            }
        }
        double base = median(cs[0].batch, rounds);
        for (int k = 0; k < count; ++k)
            cs[k].ratios[b] = median(cs[k].batch, rounds) / base;
    }
    for (int k = 0; k < count; ++k) {
        struct contender* c = &cs[k];
        printf("%s %.1f %ld %lld ", c->name, median(c->times, batches * rounds), c->peakRss,
               c->bytes);
        for (int b = 0; b < batches; ++b)
            printf(b ? ",%.4f" : "%.4f", c->ratios[b]);
        printf("\n");
    }
    return 0;
}
