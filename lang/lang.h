// The language's foundations: source lines and tokens, keywords, the
// symbol table, the compile error reporters, the engine-wide settings that
// the option statements make, and the data matrix.
//
// All state is process-wide and rebuilt by every compilation (settings: by
// the engine reset only).
#pragma once

#include <cstddef>
#include <cstdint>

#include "support/support.h"

namespace vexor {
struct OpInstr;
}

namespace vexor {

// ---------------------------------------------------------------------------
// Token kinds (ORDER TOKEN: the values are fixed; 3 and 5 are unused)
// ---------------------------------------------------------------------------
enum : uint8_t {
  TK_NAME = 1,
  TK_NUMBER = 2,
  TK_STRING = 4,
  TK_SEMI = 6,
  TK_EOF = 7,
  TK_PLUS = 8,
  TK_MINUS = 9,
  TK_DIV = 10,
  TK_POW = 11,
  TK_MOD = 12,
  TK_LPAREN = 13,
  TK_RPAREN = 14,
  TK_LBRACE = 15,
  TK_RBRACE = 16,
  TK_MUL = 17,
  TK_AND = 18,
  TK_OR = 19,
  TK_NE = 20,
  TK_NOT = 21,
  TK_GE = 22,
  TK_GT = 23,
  TK_LE = 24,
  TK_LT = 25,
  TK_EQ = 26,
  TK_ASSIGN = 27,
  TK_COMMA = 28,
  TK_ADDASSIGN = 29,
  TK_MULASSIGN = 30,
  TK_DIVASSIGN = 31,
  TK_SUBASSIGN = 32,
  TK_KEYWORD = 33,
  TK_INC = 34,
  TK_DEC = 35,
  TK_LBRACKET = 36,
  TK_RBRACKET = 37,
  TK_QUESTION = 38,
  TK_COLON = 39,
};

// ---------------------------------------------------------------------------
// Keyword codes (ORDER KEYWORD: the values are fixed; see keywords.cpp)
// ---------------------------------------------------------------------------
enum : uint8_t {
  KW_CONSTANT = 1,
  KW_BREAK = 2,
  KW_DOUBLE = 3,
  KW_ELSE = 4,
  KW_OUTPUT = 5,
  KW_POUTPUT = 6,
  KW_FOR = 7,
  KW_IF = 8,
  KW_TO = 9,
  KW_PARAMETERS = 10,
  KW_COVARIANCE = 11,
  KW_STOP = 12,
  KW_TOLERANCE = 13,
  KW_VARIABLES = 14,
  KW_WHILE = 15,
  KW_CONTINUE = 16,
  KW_DO = 17,
  KW_TITLE = 18,
  KW_PLOT = 19,
  KW_RPLOT = 20,
  KW_NPLOT = 21,
  KW_DATA = 22,
  KW_FUNCTION = 23,
  KW_GRID = 24,
  KW_RESIDUAL = 25,  // no word: the plot option parser's code for "residual"
  KW_ITERATIONS = 26,
  KW_PRESOLUTION = 27,
  KW_PRINT = 28,
  KW_NOPAUSE = 29,
  KW_DOMAIN = 30,
  KW_NOTITLE = 31,
  KW_CONSTRAIN = 32,
  KW_SWEEP = 34,
  KW_ANGLETYPE = 35,
  KW_WIDTH = 36,
  KW_NOECHO = 37,
  KW_CONFIDENCE = 38,
  KW_VALUES = 39,
  KW_NOGRID = 40,
  KW_XLABEL = 41,
  KW_YLABEL = 42,
  KW_NOXLABEL = 43,
  KW_NOYLABEL = 44,
  KW_XVAR = 45,
  KW_YVAR = 46,
  KW_SPLOT = 47,
  KW_CORRELATE = 48,
  KW_XVAR2 = 49,
  KW_YVAR2 = 50,
  KW_CONNECT = 51,
  KW_CONNECT2 = 52,
  KW_NOMARK = 53,
  KW_NOMARK2 = 54,
  KW_DATASKIP = 55,
  KW_DATACOUNT = 56,
};

// ---------------------------------------------------------------------------
// Source lines and tokens
// ---------------------------------------------------------------------------

inline constexpr int MAXLINE = 20000;   // characters of a source line kept
inline constexpr int MAXNAME = 30;      // characters of a name kept
inline constexpr int MAXSTRING = 999;   // characters of a string kept
inline constexpr int TABSTOP = 4;       // tab width of the numbered echo
inline constexpr int MAXDATAREC = 50000;  // characters of a data record
// Bounds of a data file: a line is read to its end only up to MAXRECORDREAD
// characters, and a file only up to MAXDATAREAD bytes; beyond either the
// reading stops with a data message.
inline constexpr long MAXRECORDREAD = 1048576;
inline constexpr long long MAXDATAREAD = 1LL << 32;

// One numbered piece of the source (tag "slb"); the text is stored inline
// behind the header, cut at its first CR or LF.
struct SourceLine {
  SourceLine* next;
  SourceLine* prev;
  int32_t number;
  int32_t fileline;  // the line of the program text where the piece begins
  char text[1];
};

// A token of the program (tag "li", zero-filled).
struct Token {
  Token* next;       // list of live tokens, newest first
  Token* prev;
  Token* stacklink;  // push-back stack
  uint8_t kind;      // TK_...
  uint8_t keyword;   // KW_... when kind is TK_KEYWORD
  double value;      // TK_NUMBER
  SourceLine* line;  // current line when the token began
  char* text;        // TK_NAME, TK_KEYWORD, TK_STRING (tag "listr")
};

// The program text being compiled and how far srcread has read it.
extern char* srctext;
extern const char* srcpos;
extern int32_t srcpieces;

// Head and tail of the source line list.
extern SourceLine* firstline;
extern SourceLine* lastline;
extern SourceLine* curline;  // the line being scanned

int srcread(char* buffer, int limit);  // buffer: limit + 1 characters
signed char srcgetc(SourceLine** line);
void srcungetc(signed char c, SourceLine* line);
Token* scantok();
Token* gettok();
void ungettok(Token* tok);
void freetok(Token* tok);
void freetoks();
void freelines();
void scannum(int first, Token* tok);
void unescape(char* text);
void kwlookup(Token* tok);
// The i-th reserved word of the keyword table (lower case), or null past
// its end: for tools that list the vocabulary (the fuzzers' dictionary).
const char* kwword(int i);
void lexreset();  // needline 1, line number 0, column 0

// Number of the last source line read (0 before the first).
extern int32_t srclineno;
// The line of the program text (from 1) at which the last piece srcread
// returned begins.
extern int32_t srcpieceline;
// Parentheses the tokenizer has opened and not yet closed (never below 0;
// 0 after lexreset).  While one is open, the semicolons of blank pieces are
// handed to the tokenizer (see srcgetc).
extern int32_t lexparens;
// Sets the program text (a copy, tag "DynamicString"; null for none) and
// resets the lexer.  Tokens and source lines are not freed here: the engine
// cleanup runs freetoks and freelines first.
void srcset(const char* text);
void srcfree();   // frees the program text
void srcreset();  // the character reader's part of lexreset
int srcended();   // 1 once srcgetc has met the end of the source

// The reaction to a comment left open at the end of the source.  The default
// handler ends the process with the given status; a host may install one
// that returns, and the compilation then fails like any other.
using LexExitHandler = void (*)(int status);
LexExitHandler setlexexit(LexExitHandler handler);

// ---------------------------------------------------------------------------
// Traps: text that the language reads by its rules but that is probably not
// what was meant.  Noted where they are met (the source reader, the
// expression parser, the DATA statement), never reported by the engine;
// a tool may warn of them.  Cleared by every compilation.
// ---------------------------------------------------------------------------

enum : uint8_t {
  TRAP_NEGPOW = 1,       // -x^2, which is (-x)^2
  TRAP_EXTRAVALUES,      // a data record with more values than variables
  TRAP_DECIMALCOMMA,     // a data record with a digit, a comma and a digit
  TRAP_HEADERLIKE,       // a first data record that begins like a name
  TRAP_LONGLINE,         // a line cut at MAXLINE (program) or MAXDATAREC (data)
  TRAP_COMMENTSEMI,      // a ';' inside a // comment, followed by more text
  TRAP_NOLINEFEED,       // text after the last ';' or line feed: never read
};
enum : uint8_t { TRAPIN_PROGRAM = 0, TRAPIN_DATAFILE = 1 };
struct Trap {
  uint8_t kind;       // TRAP_...
  uint8_t where;      // TRAPIN_...: a line of the program text or of the data file
  int32_t fileline;   // its line in that file (from 1; 0 when unknown)
  int32_t number;     // the listing's line number of the piece (0 for none)
  int32_t count;      // occurrences (the first is the one located)
  char text[81];      // the text concerned, cut to 80 characters
};
inline constexpr int MAXTRAPS = 64;
extern Trap traps[MAXTRAPS];
extern int32_t ntraps;
// Notes a trap; with `coalesce`, a trap of the same kind and place already
// noted is counted instead of noted again.  Past MAXTRAPS nothing more is
// noted.
void notetrap(uint8_t kind, uint8_t where, int32_t fileline, int32_t number, const char* text,
              bool coalesce);
void cleartraps();

// ---------------------------------------------------------------------------
// Symbols
// ---------------------------------------------------------------------------

enum : uint8_t { SYM_UNDEF = 0, SYM_INPUT = 1, SYM_PARAM = 2, SYM_WORK = 3, SYM_CONST = 4 };
enum : uint8_t { SYMF_USED = 1, SYMF_INMODEL = 2 };

// One record per name (tag "vd", zero-filled).
struct Symbol {
  Symbol* next;
  char name[36];
  double value;       // current value
  double initval;     // parameter start; scalar DOUBLE/CONSTANT initialiser
  int32_t constrained;
  double lower;       // parameter bound, or smallest data value of an input
  double upper;       // parameter bound, or largest data value of an input
  double cilow;       // confidence limits of a parameter
  double cihigh;
  double stderror;    // standard error of a parameter's estimate
  double tval;
  double pval;
  int16_t index;      // position in its kind list
  uint8_t ndims;      // 0 scalar, 1 or 2
  int32_t dim1;
  int32_t dim2;
  int32_t nelem;
  int32_t nalloc;     // elements allocated at elems (at least 1 for an array)
  double* elems;      // tag "ary"; element (i, j) at i * dim2 + j
  double* initelems;  // tag "aryinit"
  int32_t ninit;
  uint8_t kind;       // SYM_...
  uint8_t flags;      // SYMF_...
};

inline constexpr int MAXINVARS = 2000;
inline constexpr int MAXPARMS = 2000;
inline constexpr int MAXWORKVARS = 1000;

extern Symbol* symlist;
extern Symbol* invars[MAXINVARS];
extern int32_t nvar;
extern Symbol* parms[MAXPARMS];
extern int32_t nparm;
extern Symbol* workvars[MAXWORKVARS];
extern int32_t nwork;
extern Symbol* depvar;
// The program has no VARIABLES statement: the analysis minimises |function|.
extern int minimize;
// The built-in work variables, slots 0, 1 and 2 of workvars.
extern Symbol* sympredicted;
extern Symbol* symresidual;
extern Symbol* symobs;

Symbol* symfind(const char* name);
Symbol* symnew(const char* name, uint8_t kind);
Symbol* symref(const char* name);
Symbol* parmnew(const char* name);
void symclear();
void symbuiltins();  // creates "Predicted", "Residual" and "Obs"

// Declaration helpers shared by the declaring statements.  symdeclare
// (VARIABLES, DOUBLE, CONSTANT): a name already known gives "Variable defined
// more than once: %s" at the name's line and the known record is returned;
// otherwise symnew.  parmdeclare (PARAMETERS): a known name gives "Parameter
// defined more than once: %s" and the known record is used; otherwise
// parmnew; then parmenter.  parmenter enters a record in parms, or reports
// "VEXOR can only handle %d parameters." at `line` when parms is full
// (returns 0 then, 1 when entered).
Symbol* symdeclare(const Token* name, uint8_t kind);
Symbol* parmdeclare(const Token* name);
int parmenter(Symbol* sym, const SourceLine* line);

// ---------------------------------------------------------------------------
// Error reporting
// ---------------------------------------------------------------------------

void comperr(const Token* tok, const char* msg);
void comperrl(const SourceLine* line, const char* msg);
void datamsg(const char* format, ...);
// The errors of the last compilation (comperr, comperrl, datamsg and the
// lexer's errmsg), as records beside the listing (for hosts that show them
// apart from it): the message without its line
// end, the listing's line number and the line of the program text (0 when
// the message names no line).  The first MAXCOMPMSGS are kept; compmsgtotal
// counts them all.  Cleared by clearcompmsgs (the engine reset).
struct CompMsg {
  int32_t number;
  int32_t fileline;
  char text[160];
};
inline constexpr int MAXCOMPMSGS = 100;
extern CompMsg compmsgs[MAXCOMPMSGS];
extern int32_t ncompmsgs;
extern int32_t compmsgtotal;
void clearcompmsgs();
void notice(const SourceLine* line, const char* msg);
void errmsg(const char* msg);
extern int32_t nerrors;      // general error count (errmsg)
extern int noticelisting;    // notices go to the Listing (default on)

// ---------------------------------------------------------------------------
// Engine-wide analysis settings (restored by resetsettings, which the engine
// reset calls; a compilation leaves them as they are)
// ---------------------------------------------------------------------------

inline constexpr int MAXCORR = 2000;
inline constexpr int MAXOUTVARS = 2005;
inline constexpr int MAXPATH = 512;
inline constexpr int MAXTITLE = 1000;

extern int32_t maxiter;       // 500
extern double tolerance;      // 1e-10
extern double conflevel;      // 0: no confidence intervals
extern int32_t covreq;        // -3
extern int covprint;          // 0
extern Symbol* corrvars[MAXCORR];
extern int32_t ncorr;
extern int degrees;           // 1: angles in degrees
extern int srclist;           // 1: numbered source echo
extern int32_t presolution;   // 1 = 150, 2 = 300
extern double plotwidth;      // 8.0
extern char title[MAXTITLE];
extern int32_t outmode;       // 0 none, 1 file, -1 listing file
extern char outfile[MAXPATH];
extern Symbol* outvars[MAXOUTVARS];
extern int32_t noutvars;
extern char parfile[MAXPATH];

void resetsettings();


// ---------------------------------------------------------------------------
// Data matrix
// ---------------------------------------------------------------------------

// The matrix (datamatrix.cpp): nobs rows of nvar columns, row-major (tag
// "obs").  datacap is the capacity the language's rules give; datarows the
// rows of datawidth doubles actually allocated, which grow with the rows
// stored.
extern double* datamat;
extern int32_t nobs;  // observations in datamat
extern int32_t datacap;
extern int64_t datarows;
extern int32_t datawidth;
extern int32_t skiprecs;   // DATASKIP
extern int32_t datacount;  // DATACOUNT
extern int32_t ndataerr;   // data errors since the engine reset

// A new matrix (any old one freed) with the capacity `cap`, rows of `width`
// doubles, and memory for `rows` rows (zero-filled when `zeroed`, at no cost
// until used); without `rows`, memory for the first rows only.  1 on
// success; 0 leaves no matrix.
int datanew(int32_t cap, int32_t width, int64_t rows, int zeroed);
int datanew(int32_t cap, int32_t width);
// Memory for at least `rows` rows, growing geometrically; the contents stay,
// and with `zeroed` the new rows read 0.0.  0 when memory runs out (the
// matrix is then unchanged).
int dataroom(int64_t rows, int zeroed);
// No matrix: the memory freed, capacity and observations 0.
void freedata();
// The growth rules of the three writers, each 1 on success and 0 when the
// memory cannot be had:
//   datareadroom (DATA): room for row nobs, the next record; the capacity
//     grows by nobs / 10 + 2000 rows when reading reaches it;
//   datahostrows (SetDataRows): a new zero-filled matrix of `rows` rows and
//     that many observations; a negative count or a failure leaves no matrix;
//   datahostrow (SetDataValue): row `row` (>= 0) made an observation, the
//     matrix made or grown with the capacity row + 501 and rows skipped
//     reading 0.0; nobs becomes row + 1 when it was below.  A failure (or a
//     negative row, which changes nothing and gives 0) leaves no matrix and
//     0 observations, so the count never runs ahead of the data.
// Rows are nvar doubles wide for the host's writers.
int datareadroom();
int datahostrows(int32_t rows);
int datahostrow(int32_t row);
// A host has written a cell of `row`.
void datawritten(int64_t row);
// Rows [from, to) become observations: whatever they held is cleared, so
// they read 0.0 until written (only rows that may hold anything are
// touched).
void dataexpose(int32_t from, int32_t to);

}  // namespace vexor
