// Conditional blocks: <@if> and <@elif> heads, <@else>, <@end>, and the
// one-line form "<@if> COND <@command>".
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "control/blocks.h"
#include "control/cond.h"
#include "control/prefix.h"
#include "diag/diag.h"
#include "page/dispatch.h"
#include "page/page.h"
#include "page/prepared.h"
#include "subst/args.h"
#include "subst/subst.h"
#include "subst/values.h"

namespace {

// Copies the condition of the head LINE (after its KW-byte tag) into TEXT
// and, behind its terminator, the inline command if the line holds one.
// Returns the inline command or NULL.
char *split_head(const char *line, int kw, char *text) {
    const char *rest = line + kw;
    const char *at = *rest ? strstr(rest + 1, "<@") : nullptr;
    size_t clen = at ? static_cast<size_t>(at - rest) : strlen(rest);
    if (clen > X_MAXLINE - 2) clen = X_MAXLINE - 2;
    memcpy(text, rest, clen);
    text[clen] = 0;
    if (!at) return nullptr;
    char *inl = text + clen + 1;
    size_t room = X_MAXLINE - clen - 2;
    size_t ilen = strnlen(at, room);
    memcpy(inl, at, ilen);
    inl[ilen] = 0;
    return inl;
}

int eval(const X_IFPLAN *plan, bool *holds);

void emit(const char *line, int compile) {
    if (compile) X_transline(line, nullptr, compile);
    else transvalue(line, nullptr);
}

// Reads the block after a head whose condition gave R, up to its <@end>.
// Returns 1 when an <@elif> takes over the block (its line is then in
// BUFF), else 0.
int run_block(X_FILE *fp, char *buff, char *text, int r, int *compile, const X_IFPLAN **plan) {
    for (;;) {
        if (X_LINE *row = X_line_at(fp)) {
            // A prepared line: block ends and planned lines run here.
            if (Continue) r = 0;
            fp->offset = row->end;
            if (row->kind == X_LINE_END) return 0;
            if (row->kind == X_LINE_ELIF && !Continue && !r) {
                memcpy(buff, row->text, row->len + 1);
                if (row->planned) *plan = &row->if_plan;
                return 1;
            }
            if (row->kind == X_LINE_ELSE) {
                X_notfound(fp, *compile, Continue ? 1 : r != 0);
                return 0;
            }
            if (!r && X_line_skips(row)) continue;
            if (!r && row->kind == X_LINE_IFBLOCK) {  // a nested block passed over
                X_notfound(fp, *compile, 1);
                continue;
            }
            if (r && row->kind == X_LINE_IFBLOCK && row->planned && *compile) {
                memcpy(text, row->text, row->len + 1);
                if (X_if_block(fp, text, &row->if_plan, *compile) == 0) continue;
            } else if (r && X_line_run(row, *compile) == 0) {
                continue;
            }
            memcpy(text, row->text, row->len + 1);
        } else {
            if (!X_fgets(text, X_MAXLINE, fp)) break;
            if (Continue) r = 0;
            cut_cmd(fp, text);
        }
        if (has_prefix(text, "<@elif>")) {
            if (Continue || r) {
                X_notfound(fp, *compile, 1);
                return 0;
            }
            memcpy(buff, text, strlen(text) + 1);
            return 1;
        }
        if (is_command(text) && X_command(fp, text, compile, !r) == 0) continue;
        if (has_prefix(text, "<@end>")) return 0;
        if (has_prefix(text, "<@continue>")) {
            if (r) Continue = 1;
            X_TRACE("X_if: [continue] ==> %d \n", Continue);
            continue;
        }
        if (has_prefix(text, "<@break>")) {
            if (r) Continue = Break = 1;
            r = 0;
            X_TRACE("X_if: [break] ==> Continue= %d \n", Continue);
            continue;
        }
        if (has_prefix(text, "<@else>")) {
            int skip = Continue ? 1 : r != 0;
            if (!skip) X_DEBUG("<@else> \n");
            X_notfound(fp, *compile, skip);
            return 0;
        }
        if (!r) continue;
        if (IgnoreEmpty && text[0] == '\n') continue;
        emit(text, *compile);
    }
    // The page ended before <@end>: nothing is left to run or skip.
    X_notfound(fp, *compile, Continue ? 1 : r != 0);
    return 0;
}

// Evaluates the head in BUFF and runs its branch; an <@elif> that takes
// over the block is handled by the same loop, so a long elif chain needs
// no deeper stack.
// PLAN, when not NULL, is the prepared condition of the head (which has no
// inline command).
[[gnu::noinline]] int run_if(X_FILE *fp, char *buff, int kw, int compile, const X_IFPLAN *plan) {
    if (int r; X_stack_moved(r, [&] { return run_if(fp, buff, kw, compile, plan); })) return r;
    char text[X_MAXLINE];
    for (;;) {
        char *inl = nullptr;
        bool holds;
        int r;
        if (plan && eval(plan, &holds) == 0) {
            r = holds;
        } else {
            inl = split_head(buff, kw, text);
            X_DEBUG("IF cond: %s \n", text);
            X_DEBUG("IF inline cmd: %s\n", inl ? inl : "");
            r = X_if_SCAN(text, buff, compile);
            X_TRACE("X_if: sst cond result: %d \n", r);
            X_DEBUG("IF check result: %d \n", r);
        }
        plan = nullptr;
        if (inl) {
            X_TRACE("X_if: try as line command: {%s} \n", inl);
            if (strstr(inl, "<@continue>")) {
                if (r) Continue = 1;
                return 0;
            }
            if (strstr(inl, "<@break>")) {
                if (r) Continue = Break = 1;
                return 0;
            }
            // The command gets the whole buffer: it may join continuation
            // lines, or be a one-line if that uses it as scratch.
            memmove(text, inl, strlen(inl) + 1);
            cut_cmd(fp, text);
            if (is_command(text) && X_command(fp, text, &compile, !r) == 0) return 0;
        }
        if (!run_block(fp, buff, text, r, &compile, &plan)) return 0;
        kw = 7;
        X_TRACE("X_if: {%s} compile: %d ignore: %d \n", buff, compile, 0);
    }
}

}  // namespace

int X_if(X_FILE *fp, char *buff, int compile, int ignore) {
    int kw = has_prefix(buff, "<@if>") ? 5 : has_prefix(buff, "<@elif>") ? 7 : 0;
    if (!kw) return -1;
    X_TRACE("X_if: {%s} compile: %d ignore: %d \n", buff, compile, ignore);
    if (ignore) {
        // A skipped <@elif> belongs to the enclosing block; a skipped one-line
        // if has no body.
        if (kw == 7 || strstr(buff + kw, "<@")) return 0;
        X_notfound(fp, compile, 1);
        return 0;
    }
    if (X_stack_low()) {
        ERRMSG("IF: nesting too deep: %.200s \n", buff);
        return 0;
    }
    return run_if(fp, buff, kw, compile, nullptr);
}

int X_if_block(X_FILE *fp, char *buff, const X_IFPLAN *plan, int compile) {
    if (X_stack_low()) return -1;  // reported the usual way
    return run_if(fp, buff, 5, compile, plan);
}

// ---- Prepared one-line conditions -----------------------------------------

namespace {

constexpr const char *plain_ops[] = {">=", "&ge;", "&gt;=", "<=", "&le;", "&lt;=", "!=",
                                     "==", ">",    "&gt;",  "<",  "&lt;", "="};

// A value that stays one word of the expanded condition: not empty, no blank
// or control byte, no opening quote.
bool one_word(const char *v) {
    if (!v || !*v || X_stop_char(static_cast<unsigned char>(*v)) != ' ') return false;
    for (; *v; v++)
        if (static_cast<unsigned char>(*v) <= ' ') return false;
    return true;
}

// An operand token: "$(name)" of a plain variable, or a literal word.
bool operand(const std::string &t, X_REF *ref, const char **word) {
    *ref = {nullptr, nullptr, X_REF_UNBOUND};
    *word = nullptr;
    if (t.starts_with("$(")) {
        std::string name = t.substr(2, t.size() - 3);
        if (!t.ends_with(")") || name.find_first_of("()") != std::string::npos || !X_value_plain(name.c_str()))
            return false;
        ref->name = strdup(name.c_str());
        return ref->name != nullptr;
    }
    if (t.find("$(") != std::string::npos) return false;
    *word = strdup(t.c_str());
    return *word != nullptr;
}

}  // namespace

namespace {

// Fills PLAN's test from the condition COND: 0, or -1 when it is not one
// simple cmp or icmp of literal words and plain variable references.
int cond_prepare(const std::string &cond, X_IFPLAN *plan) {
    // One simple test: no group, quote or connector.
    for (char c : cond)
        if (X_stop_char(static_cast<unsigned char>(c)) != ' ') return -1;
    if (cond.find("&&") != std::string::npos || cond.find("||") != std::string::npos) return -1;
    std::vector<std::string> words;
    for (size_t i = 0; i < cond.size();) {
        if (static_cast<unsigned char>(cond[i]) <= ' ') {
            i++;
            continue;
        }
        size_t e = cond.find(' ', i);
        if (e == std::string::npos) e = cond.size();
        words.push_back(cond.substr(i, e - i));
        i = e;
    }
    if (words.size() != 4 || words[0].starts_with("(")) return -1;
    std::string kw = words[0].starts_with("!") ? words[0].substr(1) : words[0];
    if (kw != "cmp" && kw != "icmp") return -1;
    plan->icmp = kw == "icmp";
    plan->neg = words[0][0] == '!';
    plan->op = nullptr;
    for (const char *op : plain_ops)
        if (words[2] == op) plan->op = op;
    if (!plan->op) return -1;
    plan->rel = X_cmp_relation(plan->op);
    for (int i = 0; i < 2; i++) {
        if (!operand(words[2 * i + 1], &plan->ref[i], &plan->word[i])) return -1;
        plan->number[i] = plan->word[i] ? static_cast<int>(X_number(plan->word[i])) : 0;
    }
    return 0;
}

// Evaluates a prepared test: 0 with *HOLDS set, or -1 (nothing done) when
// an operand's value could move a word.
int eval(const X_IFPLAN *plan, bool *holds) {
    const char *v[2];
    int n[2];
    for (int i = 0; i < 2; i++) {
        v[i] = plan->word[i];
        n[i] = plan->number[i];
        if (!plan->ref[i].name) continue;
        X_USER *u = X_ref_user(const_cast<X_REF *>(&plan->ref[i]));
        if (!u || u->fixed == 2) return -1;  // a shared buffer need not be terminated
        v[i] = u->var.value;
        long kept;
        if (X_user_number(u, &kept)) {  // a kept number's text is one word
            n[i] = static_cast<int>(kept);
            continue;
        }
        if (!one_word(v[i])) return -1;
        if (plan->icmp) {
            kept = X_number(v[i]);
            X_note_number(u, kept);
            n[i] = static_cast<int>(kept);
        }
    }
    int c = plan->icmp ? (n[0] > n[1]) - (n[0] < n[1]) : strcmp(v[0], v[1]);
    *holds = X_cmp_holds(plan->rel, c) != plan->neg;
    return 0;
}

}  // namespace

int X_if_prepare(const char *line, X_IFPLAN *plan) {
    if (!has_prefix(line, "<@if>")) return -1;
    const char *rest = line + 5;
    const char *at = *rest ? strstr(rest + 1, "<@") : nullptr;
    if (!at) return -1;
    plan->jump = strstr(at, "<@continue>") ? 1 : strstr(at, "<@break>") ? 2 : 0;
    if (!plan->jump) return -1;
    return cond_prepare(std::string(rest, at - rest), plan);
}

int X_if_head_prepare(const char *line, X_IFPLAN *plan) {
    int kw = has_prefix(line, "<@if>") ? 5 : has_prefix(line, "<@elif>") ? 7 : 0;
    if (!kw) return -1;
    const char *rest = line + kw;
    if (*rest && strstr(rest + 1, "<@")) return -1;  // an inline command
    plan->jump = 0;
    return cond_prepare(rest, plan);
}

int X_if_run(X_IFPLAN *plan) {
    bool holds;
    if (eval(plan, &holds) != 0) return -1;
    if (holds) {
        Continue = 1;
        if (plan->jump == 2) Break = 1;
    }
    return 0;
}
