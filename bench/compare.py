#!/usr/bin/env python3
"""Whole runs of Tolm against reference programs, side by side in one run.

Usage: compare.py TOLM [RUNS]

Four pages run from the shell under hyperfine -N: a one-line page, a
typical page (20 variables, an if, a 50-row loop), a large page (22 KB of
text lines with references) and a 100,000-iteration loop. Each is measured in the same hyperfine run as a static C program that
prints exactly what Tolm printed (built here) and the same page in perl when
perl is installed. The report gives median, min-max and the ratio to each
reference; a 10x longer loop and the peak memory of both loops show whether
the cost stays linear.
"""
import json
import os
import shutil
import subprocess
import sys
import tempfile

VARS = 20
ROWS = 50
LOOP = 100000

ONE_LINE = "Hello $(name), you owe $(price) EUR.\n"

PERL_ONE_LINE = 'my %v = (name => "world", price => "12.50");\n' \
                'print "Hello $v{name}, you owe $v{price} EUR.\\n";\n'


def typical_page():
    lines = ['<@set> v%d "value number %d"' % (i, i) for i in range(1, VARS - 1)]
    lines += ['<@set> title "Price list"', "<@set> user admin",
              "<html><head><title>$(title)</title></head><body>",
              "<h1>$(title)</h1>",
              "<@if> cmp $(user) == admin",
              "<p>Welcome back, $(user).</p>",
              "<@else>",
              "<p>Hello guest.</p>",
              "<@end>",
              "<table>",
              "<@set> i 0",
              "<@while>",
              "<@i>++",
              "<tr><td>$(i)</td><td>$(v3)</td><td>$(v7) EUR</td></tr>",
              "<@if> icmp $(i) >= %d <@break>" % ROWS,
              "<@end>",
              "</table>",
              "<p>$(v1) / $(v2) / $(v18)</p>",
              "</body></html>"]
    return "\n".join(lines) + "\n"


def perl_typical():
    return r'''my %v;
$v{"v$_"} = "value number $_" for 1 .. ''' + str(VARS - 2) + r''';
$v{title} = "Price list"; $v{user} = "admin";
print "<html><head><title>$v{title}</title></head><body>\n<h1>$v{title}</h1>\n";
if ($v{user} eq "admin") { print "<p>Welcome back, $v{user}.</p>\n" }
else { print "<p>Hello guest.</p>\n" }
print "<table>\n";
$v{i} = 0;
while (1) {
  $v{i}++;
  print "<tr><td>$v{i}</td><td>$v{v3}</td><td>$v{v7} EUR</td></tr>\n";
  last if $v{i} >= ''' + str(ROWS) + r''';
}
print "</table>\n<p>$v{v1} / $v{v2} / $v{v18}</p>\n</body></html>\n";
'''


LARGE_LINES = 330


def large_page():
    return "".join("<p>Line %d of the page, with $(name) and some more text here.</p>\n" % i
                   for i in range(LARGE_LINES))


def perl_large():
    return ('my %%v = (name => "world");\nfor my $i (0 .. %d) {\n'
            '  print "<p>Line $i of the page, with $v{name} and some more text here.</p>\\n";\n}\n'
            % (LARGE_LINES - 1))


def loop_page(n):
    return ("<@set> n 0\n<@set> i 0\n<@while>\n<@n>+= $(i)\n<@i>++\n"
            "<@if> icmp $(i) >= %d <@break>\n<@end>\n$(n)\n" % n)


def perl_loop(n):
    return ('my %%v = (n => 0, i => 0);\nwhile (1) {\n  $v{n} += $v{i};\n  $v{i}++;\n'
            '  last if $v{i} >= %d;\n}\nprint "$v{n}\\n";\n' % n)


def c_program(text):
    lit = "".join("\\x%02x" % b for b in text)
    return ('#include <unistd.h>\nstatic const char t[] = "%s";\n'
            'int main(void) { return write(1, t, sizeof t - 1) == (long)(sizeof t - 1) ? 0 : 1; }\n'
            % lit)


def write(path, text):
    with open(path, "w") as f:
        f.write(text)


def installed(path, tmp):
    """A copy of the program in TMP, written in one piece as an install does:
    a file fresh from the linker sits in the page cache in small pieces and
    starts measurably slower than the same bytes installed."""
    dest = os.path.join(tmp, "installed-" + os.path.basename(path))
    shutil.copy2(path, dest)
    return dest


def run_tolm(cmd, env):
    return subprocess.run(cmd.split(), env=env, check=True, capture_output=True).stdout


def build_floor(tmp, name, out):
    src = os.path.join(tmp, name + ".c")
    exe = os.path.join(tmp, name + "-c")
    write(src, c_program(out))
    cc = shutil.which("cc") or shutil.which("gcc")
    subprocess.run([cc, "-O2", "-static", "-o", exe, src], check=True)
    return installed(exe, tmp)


def hyperfine(cmds, env, runs, tmp):
    report = os.path.join(tmp, "hf.json")
    args = ["hyperfine", "-N", "--style", "none", "--warmup", "5", "--export-json", report]
    if runs:
        args += ["--runs", str(runs)]
    subprocess.run(args + cmds, env=env, check=True, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)
    with open(report) as f:
        return json.load(f)["results"]


def peak_kib(tolm, tmp, n, env):
    """Peak resident memory of a loop run, in KiB, as the kernel counts it
    for the interpreter's own process (the page asks at its end)."""
    path = os.path.join(tmp, "mem-%d.html" % n)
    write(path, loop_page(n) + '<@shell> grep VmHWM /proc/$PPID/status\n')
    out = subprocess.run([tolm, path], env=env, check=True, capture_output=True).stdout.decode()
    return int(out.split("VmHWM:")[1].split()[0])


def ms(r):
    return "%8.2f ms (%.2f-%.2f)" % (r["median"] * 1e3, r["min"] * 1e3, r["max"] * 1e3)


def main():
    tolm = os.path.abspath(sys.argv[1])
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 0
    perl = shutil.which("perl")
    with tempfile.TemporaryDirectory(prefix="tolm-bench-") as tmp:
        tolm = installed(tolm, tmp)
        write(os.path.join(tmp, "x.config"), "shell:00 %s bench\n" % tmp)
        env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "LANG": "C", "X_HOME": tmp,
               "TMP_DIR": tmp}
        cases = [("one-line", ONE_LINE, PERL_ONE_LINE),
                 ("typical", typical_page(), perl_typical()),
                 ("large", large_page(), perl_large()),
                 ("loop-100k", loop_page(LOOP), perl_loop(LOOP))]
        with open("/proc/loadavg") as f:
            print("load average before: " + " ".join(f.read().split()[:3]))
        print("%-10s %-28s %-28s %-28s %7s %7s" %
              ("page", "Tolm", "static C", "perl", "/C", "/perl"))
        for name, page, pl in cases:
            path = os.path.join(tmp, name + ".html")
            write(path, page)
            args = {"one-line": " -name world -price 12.50", "large": " -name world"}
            cmd = tolm + " " + path + args.get(name, "")
            out = run_tolm(cmd, env)
            cmds = [cmd, build_floor(tmp, name, out)]
            if perl:
                ppath = os.path.join(tmp, name + ".pl")
                write(ppath, pl)
                pout = subprocess.run([perl, ppath], check=True, capture_output=True).stdout
                if pout != out:
                    sys.exit("perl and Tolm disagree on " + name)
                cmds.append(perl + " " + ppath)
            res = hyperfine(cmds, env, runs, tmp)
            t, c = res[0], res[1]
            p = res[2] if perl else None
            print("%-10s %-28s %-28s %-28s %6.2fx %6s" %
                  (name, ms(t), ms(c), ms(p) if p else "-", t["median"] / c["median"],
                   "%.2fx" % (t["median"] / p["median"]) if p else "-"))
        # Linear cost: the same loop ten times longer, and memory of both.
        short = os.path.join(tmp, "loop-100k.html")
        long = os.path.join(tmp, "loop-1m.html")
        write(long, loop_page(LOOP * 10))
        res = hyperfine([tolm + " " + short, tolm + " " + long], env, 3, tmp)
        print("loop 10x longer: %.1fx the time; peak memory %d KiB -> %d KiB" %
              (res[1]["median"] / res[0]["median"], peak_kib(tolm, tmp, LOOP, env),
               peak_kib(tolm, tmp, LOOP * 10, env)))
        with open("/proc/loadavg") as f:
            print("load average after: " + " ".join(f.read().split()[:3]))


if __name__ == "__main__":
    main()
