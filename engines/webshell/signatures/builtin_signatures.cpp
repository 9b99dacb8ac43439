// Rows of three tables. Number columns, exclusions and extra terms that are not fixed by what a rule looks for were
// chosen by measuring on samples and on ordinary applications (docs/webshell-detection.md): a word that ordinary code
// uses as well ("shell", "mail(", "iconv") counts only in a short file that also reads the request, and not in a file
// that carries the mark of a known framework.
#include "engines/webshell/signatures/builtin_signatures.h"

#include <span>
#include <string_view>

#include "common/char_set.h"
#include "engines/webshell/signatures/signature_text.h"

namespace qiv {
namespace {

using Terms = std::span<const std::string_view>;

// What marks ordinary application code: framework guards, banners, file-name endings.
constexpr std::string_view kFrameworks[] = {"--defined('in_phpcms')",
                                            "--::load_config(",
                                            "--defined('in_admin')",
                                            "--defined('in_discuz')",
                                            "--require(dedeinc.",
                                            "--require(dirname(__file__).",
                                            "--defined('dedeinc'))",
                                            "--header('location:",
                                            "--define('discuz_root',",
                                            "--include_once discuz_root.",
                                            "--defined('p_w')",
                                            "--defined('w_p')",
                                            "--defined ( 'p_w' )",
                                            "--defined('pw_upload')",
                                            "--require_once ('global.php');",
                                            "--wp_reset_vars( array(",
                                            "--interface requests",
                                            "--define('norobot'",
                                            "--function_exists('adminmsg')",
                                            "--defined('a_p')",
                                            "--defined('m_p')",
                                            "--&& exit('forbidden');",
                                            "--use phpmyadmin",
                                            "--namespace phpmyadmin",
                                            "--defined('phpmyadmin')",
                                            "--$zbp->load();",
                                            "--.class.php",
                                            "--.tpl.php",
                                            "--.inc.php",
                                            "--.lang.php",
                                            "--.core.php",
                                            "--@package wordpress",
                                            "--dedecms.",
                                            "--thinkphp",
                                            "--phpexcel",
                                            "--[ucenter]",
                                            "--zend_server",
                                            "--package phpmyadmin",
                                            "--rainbowsoft studio"};

// Rules on callbacks and the like: neither in a framework nor in a class file.
constexpr std::string_view kOrdinaryCode[] = {"--namespace", "--interface", "--@package", "--defined(", "--@license",
                                              "--extends",   "--require",   "--include",  "--$this->",  "--@copyright",
                                              "--abstract",  "--@return",   "--composer"};
constexpr std::string_view kOrdinaryScript[] = {
    "<?",        "--namespace", "--interface", "--@package",   "--defined(", "--@license", "--extends",
    "--require", "--include",   "--$this->",   "--@copyright", "--abstract", "--@return",  "--composer"};

// A request source and, of what follows, none of the marks of ordinary code.
constexpr std::string_view kRequestOnly[] = {"_get[",       "_post[",     "_cookie[",   "_request[",   "php://input",
                                             "--namespace", "--@package", "--defined(", "--@license",  "--extends",
                                             "--require",   "--include",  "--$this->",  "--@copyright"};

// The same with every source; for words that say enough by themselves.
constexpr std::string_view kAnySource[] = {
    "_get",        "_post",     "_cookie",           "_request",    "_global",     "_server",    "query_string",
    "php://input", "http_get",  "file_get_contents", "--namespace", "--@package",  "--defined(", "--@license",
    "--extends",   "--require", "--include",         "--$this->",   "--@copyright"};

// Sinks that make a request run, with what makes them do so.
constexpr std::string_view kExecution[] = {"eval($_",
                                           "exec($_",
                                           "'exec'++$_post++'_",
                                           "execute++system($_",
                                           "assert($_",
                                           "passthru($_",
                                           "session_start++eval($_",
                                           "shell_exec($_",
                                           "proc_open($_",
                                           "pfsockopen($_",
                                           "system($_",
                                           "create_function($_",
                                           "create_function('',$_",
                                           "call_user_func($_",
                                           "call_user_func_array($_",
                                           "array_walk_recursive($_",
                                           "array_walk($_",
                                           "usort($_",
                                           "uasort($_",
                                           "array_intersect_uassoc(array($_",
                                           "array_intersect_ukey(array($_",
                                           "ob_start(function++eval(++$_",
                                           "register_shutdown_function($_",
                                           "unserialize($_++eval(",
                                           "popen($_",
                                           "extract($_",
                                           "preg_replace($_",
                                           "preg_replace(++/e++,$_post",
                                           "preg_ireplace(++,$_post",
                                           "preg_filter++/e++,$_post",
                                           "mb_ereg_replace++,$_post++'e'"};

// Names of command interpreters, with what carries their output.
constexpr std::string_view kCommandMarkers[] = {"system32++$_", "cmd.exe++$_", "--namespace", "--@license"};
constexpr std::string_view kWriters[] = {
    "fwrite++$_",         "move_uploaded_file++$_", "curl_init++$_", "curl_exec++$_", "fopen++$_",
    "set_time_limit++$_", "sendmail++$_",           "--namespace",   "--@license",    "--@package"};

constexpr std::string_view kSpareNamespace[] = {"--namespace", "--defined(", "--@package", "--@license"};
constexpr std::string_view kTagSpareNamespace[] = {"<?", "--namespace", "--defined(", "--@package", "--@license"};

constexpr std::string_view kPhpTag[] = {"<?"};
constexpr std::string_view kEvalDecoders[] = {"base64_decode(", "gzinflate(",      "str_rot13(",  "str_replace(",
                                              "str_ireplace(",  "substr_replace(", "strtoupper(", "urldecode("};
constexpr std::string_view kPatternRuns[] = {"/e',$_get[",
                                             "/e\",$_get[",
                                             "/e',$_post[",
                                             "/e\",$_post[",
                                             "/e',$_request[",
                                             "/e\",$_request[",
                                             "/e',$_cookie[",
                                             "/e\",$_cookie[",
                                             "preg_replace($_get[",
                                             "preg_replace($_post[",
                                             "preg_replace($_request["};
constexpr std::string_view kScriptRuns[] = {"eval($_", "assert($_", "system($_", "passthru($_", "exec($_"};
constexpr std::string_view kStyleSheetRuns[] = {"assert", "system",      "passthru",   "shell_exec",
                                                "eval",   "--namespace", "--@package", "--@license"};
constexpr std::string_view kHandlerWrites[] = {"fwrite",      "fputs",      "file_put_contents",
                                               "--namespace", "--@package", "--@license"};
constexpr std::string_view kSpareLibrary[] = {"--namespace", "--@package", "--@license", "--@copyright", "--composer"};
constexpr std::string_view kExecuteRequest[] = {"<%execute(request(", "<%executerequest(", "\nexecuterequest(",
                                                "\nexecute(request(", ":executerequest("};
constexpr std::string_view kIncludePaths[] = {"<!--#includefile=\"c:\\", "<!--#includevirtual=\"/upload"};
constexpr std::string_view kAspTag[] = {"<%", "--<%@page", "--<%@webhandler"};
constexpr std::string_view kShellRuns[] = {"createobject(\"wscript.shell\")++.exec(request",
                                           "createobject(\"wscript.shell\")++cmd.exe++request(++stdout"};
// A script element needs no "<%": its tag, what runs, and the request, one close behind the other.
constexpr std::string_view kElementRuns[] = {">!eval!request", ">!execute!request", ">!executeglobal!request"};

// A data source of the page that calls what runs programs, or reads and writes files; without any code.
constexpr std::string_view kSourceRuns[] = {"typename=\"system.diagnostics.process", "typename=\"system.io.file",
                                            "typename=\"system.reflection.assembly"};

struct Row {
  std::string_view pattern;
  std::string_view joined_by;
  std::string_view english;
  std::string_view chinese;
  Terms extra;
  std::uint32_t number;
};

constexpr std::string_view kKnown = "Known backdoor";
constexpr std::string_view kKnownChinese = "已知后门";

constexpr Row kPhpRows[] = {
    {"uasort++array", "++", "uasort Backdoor", "uasort后门", kOrdinaryCode, 300},
    {"uksort++array", "++", "uksort Backdoor", "uksort后门", kOrdinaryCode, 300},
    {"register_shutdown_function", "!", "register_shutdown_function", "register_shutdown_function", kOrdinaryCode, 600},
    {"ReflectionFunction", "++", "ReflectionFunction", "ReflectionFunction", kOrdinaryCode, 600},
    {"ReflectionClass++>getDocComment++", "++", "ReflectionClass execution risk", "ReflectionClass执行风险",
     kOrdinaryCode, 1000},
    {"invoke", "++", "Invoke execution", "invoke执行", kOrdinaryScript, 1024},
    {">createFunction(++>execute(", "++", "CreateFunction function", "createFunction函数", kOrdinaryCode, 2048},
    {"eval!!gzuncompress!!base64_decode", "++", "Eval execution", "eval执行", {}, 10240},
    {"curl_exec++foreach++base64_decode--require_once--require--include--include_once", "++", "Web backdoor",
     "网页后门", kFrameworks, 6500},
    {"range!!foreach!!as!!is_dir--require_once--require--include--include_once", "++", "Web backdoor", "网页后门",
     kFrameworks, 6535},
    {"require_once--define(--php", "++", "Suspicious reference", "可疑引用", kPhpTag, 300},
    {"require--define(--php", "++", "Suspicious reference", "可疑引用", kPhpTag, 300},
    {"include_once--define(--php", "++", "Suspicious reference", "可疑引用", kPhpTag, 300},
    {"include--define(--php", "++", "Suspicious reference", "可疑引用", kPhpTag, 300},
    {"array--namespace", "++", "Suspicious backdoor", "可疑后门", kExecution, 2048},
    {"new memcache", "++", "Memcache", "Memcache后门", kRequestOnly, 1024},
    {"preg_replace_callback!!create_function", "++", "Backdoor exploitation", "后门利用", {}, 1024},
    {"rmdir(++is_file(++mkdir(--defined(--require_once--require--include--include_once", "++", "File management",
     "文件管理", kRequestOnly, 10240},
    {"readdir(++fread(--defined(--require_once--require--include--include_once", "++", "File management", "文件管理",
     kRequestOnly, 10240},
    {"curl_exec++fwrite++wp--class", "++", "WordPress webshell injection", "WordPress挂马", kFrameworks, 2048},
    {"while++mail(", "++", "Batch send emails", "批量发送邮件", kRequestOnly, 6500},
    {"mail(", "++", "Send email", "发送邮件", kRequestOnly, 600},
    {"mysql_num_rows++mysql_web_admin_username++drop table", "++", "MySQL management backdoor", "MySQL管理后门", {}, 0},
    {"preg_replace++chr(101)", "++", "Preg_replace execution", "preg_replace执行", {}, 10240},
    {"preg_replace++/e", "++", "Preg_replace execution", "preg_replace执行", kPatternRuns, 6500},
    {"new!com!shell.users", "!", "Webshell for system account operations", "操作系统帐号的网页后门", {}, 0},
    {"new!com!iis://localhost/w3svc", "!", "Webshell for IIS management", "管理IIS的网页后门", {}, 0},
    {"function_exists++apache_request_headers++function++session_start", "++", "Apache-targeted backdoor",
     "针对Apache的后门", kOrdinaryCode, 10240},
    {"startfile++readdir++.zip", "++", "ZIP compression and packaging", "ZIP压缩打包", kFrameworks, 0},
    {"eval!gzuncompress", "!", "Hidden backdoor", "隐藏后门", {}, 0},
    {"gzuncompress++base64_decode--namespace--defined(", "++", "Hidden backdoor", "隐藏后门", {}, 0},
    {"base!(32*2)", "!", "Hidden variants", "隐藏变种", {}, 0},
    {"str_rot13++gzinflate++base64_decode", "++", "Hidden variants", "隐藏变种", {}, 0},
    {"mysql_connect++mysql_select_db++mysql_query++gzopen++base64_encode++mail", "++", "MySQL", "MySQL", {}, 0},
    {"declare!!register_tick_function", "++", "register_tick_function", "register_tick_function", {}, 2048},
    {"globals!net!user", "!", "Hidden system account backdoor", "隐藏系统帐号后门", {}, 0},
    {"auto_prepend_file!=", "!", "Auto-load file backdoor", "自动加载文件后门", {}, 600},
    {"shell", "++", kKnown, kKnownChinese, kAnySource, 300},
    {"webshell", "++", kKnown, kKnownChinese, kAnySource, 0},
    {"phpspy", "++", kKnown, kKnownChinese, kSpareNamespace, 0},
    {"hacker", "++", kKnown, kKnownChinese, kAnySource, 2048},
    {"hacked by", "++", kKnown, kKnownChinese, kTagSpareNamespace, 0},
    {"iconv", "++", kKnown, kKnownChinese, kExecution, 1000},
    {"attacker", "++", kKnown, kKnownChinese, kExecution, 2048},
    {"namespace", "++", kKnown, kKnownChinese, kExecution, 1000},
    {"worm", "++", kKnown, kKnownChinese, kExecution, 2048},
    {"hackerdz", "++", kKnown, kKnownChinese, {}, 0},
    {"gif89a1", "++", kKnown, kKnownChinese, kPhpTag, 0},
    {"c99madshell", "++", kKnown, kKnownChinese, kPhpTag, 0},
    {"phpshell", "++", kKnown, kKnownChinese, kAnySource, 0},
    {"crack8", "++", kKnown, kKnownChinese, kTagSpareNamespace, 0},
    {"backdoor", "++", kKnown, kKnownChinese, kAnySource, 6500},
    // Commands through libraries: a mailbox's connection, a style sheet, the server's own handlers.
    {"imap_open++proxycommand", "++", "Backdoor exploitation", "后门利用", kSpareLibrary, 0},
    {"registerphpfunctions", "++", "Backdoor exploitation", "后门利用", kStyleSheetRuns, 10240},
    {"addhandler++cgi-script", "++", "Web backdoor", "网页后门", kHandlerWrites, 10240},
    {"application/x-httpd-php++.htaccess", "++", "Web backdoor", "网页后门", kHandlerWrites, 10240},
    {"socket_accept(++socket_connect(", "++", "Web backdoor", "网页后门", kSpareLibrary, 0},
    {"gzdeflate++base64_encode++eval(++gzinflate", "++", "Hidden variants", "隐藏变种", kSpareLibrary, 10240},
    {"<script++language++php", "++", "Backdoor", "后门", kScriptRuns, 2048},
    {"system32", "++", "Suspicious backdoor", "可疑后门", kWriters, 10240},
    {"cmd.exe", "++", "Suspicious backdoor", "可疑后门", kWriters, 10240},
    // A source right behind what runs it; a shell's command interpreter; a decoder right behind "eval".
    {"eval", "!", "Backdoor", "后门", kEvalDecoders, 0},
    {"file_get_contents++system(", "++", "Suspicious backdoor", "可疑后门", kRequestOnly, 600},
    {"passthru(", "++", "Suspicious backdoor", "可疑后门", kCommandMarkers, 10240},
};

constexpr std::string_view kAspRunsRequest[] = {"eval(request(", "eval(request.",   "evalrequest(", "evalrequest.",
                                                "eval(request[", "eval(\"request(", "--<%@page"};
constexpr std::string_view kAspRunsGlobal[] = {"executeglobal(request", "executeglobalrequest", "--<%@page"};
// The request is what an object runs or fetches; an object by itself is what component tests look for.
constexpr std::string_view kAspShell[] = {"wscript.shell++.execrequest",
                                          "wscript.shell++.exec(request",
                                          "wscript.shell++.runrequest",
                                          "wscript.shell++.run(request",
                                          "shell.application++.shellexecuterequest",
                                          "shell.application++.shellexecute(request"};
constexpr std::string_view kAspWrites[] = {"request(++.createtextfile(request", "request(++.savetofilerequest",
                                           "request(++.createtextfile(server.mappath(request(", "--<!--#include"};
constexpr std::string_view kAspFetches[] = {"adodb.stream++savetofile++\"get\",request",
                                            "adodb.stream++savetofilerequest"};
constexpr std::string_view kStreamFetches[] = {"savetofile++microsoft.xmlhttp++\"get\",request"};
constexpr std::string_view kSuspected = "Suspected dangerous files";
constexpr std::string_view kSuspectedChinese = "疑似危险文件";

constexpr Row kAspObjects[] = {
    {"request", "++", kSuspected, kSuspectedChinese, kAspWrites, 1024},
    {"eval", "++", "ASP backdoor", "ASP后门", kAspRunsRequest, 0},
    {"execute", "++", "ASP backdoor", "ASP后门", kExecuteRequest, 1024},
    {"executeglobal", "++", "ASP backdoor", "ASP后门", kAspRunsGlobal, 0},
    {"scripting.filesystemobject", "++", kSuspected, kSuspectedChinese, kAspShell, 6500},
    {"<!--#include", "++", "Suspicious reference", "可疑引用", kIncludePaths, 600},
    {"server.createobject", "++", kSuspected, kSuspectedChinese, kAspShell, 6500},
    {"microsoft.xmlhttp", "++", kSuspected, kSuspectedChinese, kAspFetches, 2048},
    {"adodb.stream", "++", kSuspected, kSuspectedChinese, kStreamFetches, 2048},
    {"server.mappath", "++", kSuspected, kSuspectedChinese, kAspShell, 2048},
    {"runat=", "!", "ASP backdoor", "ASP后门", kElementRuns, 0},
    {"objectdatasource", "++", kSuspected, kSuspectedChinese, kSourceRuns, 0},
};

// Words of articles, filters and forums as well: they count in a page that runs what it is told.
constexpr std::string_view kAspRunsAny[] = {"wscript.shell++.exec(++request",
                                            "wscript.shell++.run++cmd++request",
                                            "shell.application++.shellexecute++request",
                                            "eval(request",
                                            "evalrequest",
                                            "executeglobalrequest",
                                            "executeglobal(request",
                                            "exec master.dbo.xp_cmdshell++request",
                                            "exec master..xp_cmdshell++request"};

constexpr std::uint32_t kShellSize = 0;        // shells come in every size
constexpr std::uint32_t kDefacedSize = 10240;  // bytes

constexpr std::string_view kDefaced[] = {"<%++request(++.createtextfile(", "<%++request(++savetofile",
                                         "<%++request(++cmd.exe"};

constexpr Row kAspWords[] = {
    {"shell", "++", kKnown, kKnownChinese, kShellRuns, kShellSize},
    {"webshell", "++", kKnown, kKnownChinese, kAspRunsAny, kShellSize},
    {"aspspyder", "++", kKnown, kKnownChinese, kAspTag, kShellSize},
    {"hacker", "++", kKnown, kKnownChinese, kAspRunsAny, kShellSize},
    {"hacked by", "++", kKnown, kKnownChinese, kDefaced, kDefacedSize},
    {"attacker", "++", kKnown, kKnownChinese, kAspRunsAny, kShellSize},
    {"worm", "++", kKnown, kKnownChinese, kAspRunsAny, kShellSize},
    {"hackerdz", "++", kKnown, kKnownChinese, kAspTag, kShellSize},
    {"gif89a1", "++", kKnown, kKnownChinese, kAspTag, kShellSize},
    {"c99madshell", "++", kKnown, kKnownChinese, kAspTag, kShellSize},
    {"aspshell", "++", kKnown, kKnownChinese, kAspRunsAny, kShellSize},
    {"crack8", "++", kKnown, kKnownChinese, kAspTag, kShellSize},
    {"backdoor", "++", kKnown, kKnownChinese, kAspRunsAny, kShellSize},
    {"hacking", "++", kKnown, kKnownChinese, kAspRunsAny, kShellSize},
};

constexpr Row kAspDownloaders[] = {
    {"Scripting.FileSystemObject++asp++responseBody++http:/--<!--#include",
     "++",
     kSuspected,
     kSuspectedChinese,
     {},
     1024},
    {"adodb.stream++responseBody++http:/--<!--#include", "++", kSuspected, kSuspectedChinese, {}, 2048},
};

// The request is run, started, loaded, compiled or written by a page of ASPX.
constexpr std::string_view kAspxRunsRequest[] = {
    "<%@page++eval(request(", "<%@page++eval(request.", "<%@page++eval(request[",  "<%@page++evalrequest(",
    "<%@page++evalrequest.",  "<%@page++evalrequest[",  "<%@page++eval(\"request("};
constexpr std::string_view kAspxRunsGlobal[] = {"<%@page++executeglobal(request", "<%@page++executeglobalrequest"};
constexpr std::string_view kAspxRunsSql[] = {"<%@page++xp_cmdshell++request[", "<%@page++xp_cmdshell++request.",
                                             "<%@page++xp_cmdshell++request("};
constexpr std::string_view kAspxWrites[] = {"<%@page++.writealltext(request", "<%@page++.writeallbytes(request",
                                            "<%@page++.appendalltext(request", "<%@page++newstreamwriter(request"};
constexpr std::string_view kAspxObjectWrites[] = {"<%@page++.createtextfile(request", "<%@page++.opentextfile(request"};
constexpr std::string_view kAspxRunsAny[] = {"<%@page++processstartinfo++request",
                                             "<%@page++process.start(++request",
                                             "<%@page++processstartinfo++postback",
                                             "<%@page++newprocess(++.text",
                                             "<%@page++compileassemblyfromsource++request",
                                             "<%@page++assembly.load(++request",
                                             "<%@page++eval(request",
                                             "<%@page++xp_cmdshell++request",
                                             "<%@webhandler++processstartinfo++request",
                                             "<%@webhandler++process.start(++request",
                                             "<%@webhandler++assembly.load(++request"};
constexpr std::string_view kAspxTag[] = {"<%@page", "<%@webhandler"};
constexpr std::string_view kVariant = "ASPX variant backdoor";
constexpr std::string_view kVariantChinese = "ASPX变种后门";

constexpr Row kAspxObjects[] = {
    {"request", "++", kSuspected, kSuspectedChinese, kAspxWrites, 2048},
    {"eval", "++", kVariant, kVariantChinese, kAspxRunsRequest, 0},
    {"execute", "++", kVariant, kVariantChinese, kAspxRunsSql, 0},
    {"executeglobal", "++", kVariant, kVariantChinese, kAspxRunsGlobal, 0},
    {"scripting.filesystemobject", "++", kSuspected, kSuspectedChinese, kAspxObjectWrites, 2048},
};

constexpr Row kAspxWords[] = {
    {"shell", "++", kKnown, kKnownChinese, kAspxRunsAny, kShellSize},
    {"webshell", "++", kKnown, kKnownChinese, kAspxRunsAny, kShellSize},
    {"aspspyder", "++", kKnown, kKnownChinese, kAspxTag, kShellSize},
    {"hacker", "++", kKnown, kKnownChinese, kAspxRunsAny, kShellSize},
    {"hacked by", "++", kKnown, kKnownChinese, kAspxRunsAny, kShellSize},
    {"attacker", "++", kKnown, kKnownChinese, kAspxRunsAny, kShellSize},
    {"worm", "++", kKnown, kKnownChinese, kAspxRunsAny, kShellSize},
    {"hackerdz", "++", kKnown, kKnownChinese, kAspxTag, kShellSize},
    {"gif89a1", "++", kKnown, kKnownChinese, kAspxTag, kShellSize},
    {"c99madshell", "++", kKnown, kKnownChinese, kAspxTag, kShellSize},
    {"aspshell", "++", kKnown, kKnownChinese, kAspxRunsAny, kShellSize},
    {"crack8", "++", kKnown, kKnownChinese, kAspxTag, kShellSize},
    {"backdoor", "++", kKnown, kKnownChinese, kAspxRunsAny, kShellSize},
    {"hacking", "++", kKnown, kKnownChinese, kAspxRunsAny, kShellSize},
};

// The records of ASPX rules carry one more "0" than those of ASP rules.
void AddAspxField(std::string* text, std::size_t from) {
  constexpr std::string_view kShort = "{*}0{*}0{*}";
  for (std::size_t p = text->find(kShort, from); p != std::string::npos; p = text->find(kShort, p)) {
    text->insert(p, "{*}0");
    p = text->find("{#}", p);
  }
}

void AddRows(std::span<const Row> rows, Language language, std::uint32_t kind, std::string* text) {
  for (const Row& row : rows) {
    const std::string name =
        language == Language::kChinese ? CCharSet::Utf8ToLocal(row.chinese) : std::string(row.english);
    AddSignatureRule(text, row.pattern, row.joined_by, name, row.extra, row.number, kind);
  }
}

}  // namespace

std::string BuiltinSignatures(Language language) {
  std::string text;
  AddRows(kPhpRows, language, kPhpRuleKind, &text);
  AddRows(kAspObjects, language, kAspRuleKind, &text);
  AddRows(kAspWords, language, kAspRuleKind, &text);
  AddRows(kAspDownloaders, language, kAspRuleKind, &text);
  const std::size_t aspx = text.size();
  AddRows(kAspxObjects, language, kAspRuleKind, &text);
  AddRows(kAspxWords, language, kAspRuleKind, &text);
  AddAspxField(&text, aspx);
  return text;
}

std::vector<std::string> BuiltinRemoval() {
  return {"\"&\"\"&\"", "&\"\"&", "+\"\"+", "/**/", "vbcrlf&", "%><%", "_\r\n", "_\n", "'\"\"", "@@"};
}

}  // namespace qiv
