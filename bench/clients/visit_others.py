"""phpMyAdmin, DokuWiki and the static site as their users use them."""
import base64
import json
import re
import urllib.parse


SHOP = "db=shop&server=1"
TABLE = SHOP + "&table=goods"
PMA_PAGES = ["/", "/server/databases", "/server/sql", "/server/status", "/server/status/processes", "/server/status/queries",
             "/server/status/advisor",
             "/server/variables", "/server/collations", "/server/engines", "/server/privileges", "/server/export",
             "/server/import", "/preferences/manage",
             "/preferences/forms&form=Features", "/database/structure&" + SHOP, "/database/sql&" + SHOP,
             "/database/search&" + SHOP, "/database/export&" + SHOP,
             "/database/import&" + SHOP, "/database/operations&" + SHOP, "/database/routines&" + SHOP,
             "/database/multi-table-query&" + SHOP,
             "/table/structure&" + TABLE, "/table/sql&" + TABLE, "/table/search&" + TABLE, "/table/change&" + TABLE,
             "/table/export&" + TABLE,
             "/table/import&" + TABLE, "/table/operations&" + TABLE, "/table/zoom-search&" + TABLE,
             "/table/relation&" + TABLE, "/sql&pos=0&" + TABLE,
             "/sql&pos=25&session_max_rows=25&" + TABLE]
# What is typed into the SQL window.
QUERIES = ["SELECT * FROM `goods`", "SELECT name, price FROM goods WHERE price > 10 ORDER BY price DESC LIMIT 20",
           "SELECT tag, COUNT(*) AS n, AVG(price) FROM goods GROUP BY tag HAVING COUNT(*) > 3;",
           "select c.name, g.name from customers c left join goods g on g.id = c.id where c.joined is null or g.price >= 100;",
           "UPDATE goods SET note = 'it''s -- \"fine\"' WHERE id = 7",
           "INSERT INTO customers (name, joined) VALUES ('O''Brien', '2024-05-01'), ('Ng', NOW());",
           "DELETE FROM customers WHERE joined < '2001-01-01'",
           "ALTER TABLE goods ADD COLUMN weight DECIMAL(6,2) NULL AFTER price",
           "CREATE TABLE IF NOT EXISTS tides (day DATE PRIMARY KEY, high TIME, low TIME) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4; SHOW TABLES;",
           
           "EXPLAIN SELECT * FROM goods WHERE name LIKE '%lamp%' AND (tag = 'tag 1' OR tag = 'tag 2')",
           "SELECT CONCAT(name, ' (', tag, ')'), IF(price > 50, 'dear', 'cheap') FROM goods",
           "SELECT SUBSTRING(name, 1, 3), LENGTH(note), CHAR(65) FROM goods LIMIT 1",
           "-- nightly\n/* check */ CHECK TABLE goods; OPTIMIZE TABLE goods;",
           "DROP TABLE IF EXISTS tides", "SHOW VARIABLES LIKE 'max_%'",
           "SET @n = 1; SELECT @n := @n + 1 FROM goods LIMIT 3;"]
# Statements that only their place tells from an injection.
ATTACKS = ["SELECT id FROM goods WHERE id = 1 UNION SELECT id FROM customers",
           "SELECT table_name, table_rows FROM information_schema.tables WHERE table_schema = 'shop'",
           "SELECT VERSION(), USER()", "SELECT SLEEP(0), BENCHMARK(1, 1)"]
# The fields of the page's own form, some of them changed, sent without leaving the page.
SEND_FORM = """(async () => {
  const form = document.querySelector(%s), changes = %s, data = new FormData(form);
  for (const name in changes) data.set(name, changes[name]);
  for (const name of %s) data.delete(name);
  const body = form.enctype == 'multipart/form-data' ? data : new URLSearchParams(data);
  const answer = await fetch(form.getAttribute('action'), {method: 'POST', body, credentials: 'same-origin'});
  return {status: answer.status, text: (await answer.text()).slice(0, 200000)};
})()"""


def send_form(visit, form, changes, without=()):
    answer = visit.browser.value(SEND_FORM % (json.dumps(form), json.dumps(changes), json.dumps(list(without))))
    if not answer or answer.get("status") != 200:
        raise RuntimeError(f"{form}: {str(answer)[:300]}")
    return answer["text"]


def visit_phpmyadmin(visit, posts, files):
    browser, visit.application = visit.browser, "phpMyAdmin"
    visit.log_in("/pma/", "#input_username", "#input_password", "#input_go",
                 "!!document.querySelector('#pma_navigation_tree')")
    for page in PMA_PAGES:
        visit.look("/pma/index.php?route=" + page)
    with visit.action("turn over pages and sort by each column"):
        visit.open("/pma/index.php?route=/sql&pos=0&" + TABLE, "document.querySelectorAll('th .sortlink').length > 4")
        for column in range(5):
            browser.value(f"window.old = document.querySelector('.table_results tbody'), document.querySelectorAll('th .sortlink')[{column}].click()")
            browser.wait("window.old != document.querySelector('.table_results tbody') && document.querySelectorAll('th .sortlink').length > 4", 20)
    with visit.action("edit a row"):
        browser.value("document.querySelector('td.edit_row_anchor a').click()")
        browser.wait("!!document.querySelector('#insertForm textarea') && !jQuery.active && !AJAX.active", 20)
        browser.type("#insertForm textarea", "It's \"new\" -- 1 or 2; <b>bold</b>")
        browser.value("document.querySelector('#buttonYes').click()")
        browser.wait("/row affected/.test(document.body.innerText)", 20)
    write_rows(visit, posts)
    run_queries(visit)
    transfer(visit, files)


def write_rows(visit, posts):
    browser = visit.browser
    visit.open("/pma/index.php?route=/table/change&" + TABLE, "!!document.querySelector('#insertForm')")
    fields = browser.value("[...document.querySelectorAll('#insertForm [name^=\"fields[multi_edit][0]\"]')].map(e => e.name)")

    def insert(post):
        if not browser.value("!!document.querySelector('#insertForm')"):
            visit.open("/pma/index.php?route=/table/change&" + TABLE, "!!document.querySelector('#insertForm')")
        answer = send_form(visit, "#insertForm",
                           {fields[1]: post.title, fields[2]: "post", fields[3]: "1", fields[-1]: post.text})
        if "INSERT INTO `goods`" not in answer or re.search(r"#1\d{3} - ", answer):
            raise RuntimeError(answer[-300:])

    for post in posts:
        if post.is_script:
            visit.attack(f"insert a row: {post.title}", lambda post=post: insert(post))
        else:
            with visit.action(f"insert a row: {post.title}"):
                insert(post)
    for post in posts[:10]:
        with visit.action(f"search a table: {post.title}"):
            visit.open("/pma/index.php?route=/table/search&" + TABLE, "!!document.querySelector('#tbl_search_form')")
            send_form(visit, "#tbl_search_form",
                      {"criteriaValues[1]": post.title, "criteriaColumnOperators[1]": "LIKE %...%", "ajax_request": "true"})


def run_queries(visit):
    browser = visit.browser
    visit.open("/pma/index.php?route=/database/sql&" + SHOP, "!!document.querySelector('#sqlqueryform')")

    def run_query(text):
        if not browser.value("!!document.querySelector('#sqlqueryform')"):
            visit.open("/pma/index.php?route=/database/sql&" + SHOP, "!!document.querySelector('#sqlqueryform')")
        if '"success":' not in send_form(visit, "#sqlqueryform",
                                         {"sql_query": text, "ajax_request": "true", "is_js_confirmed": "1"}, ["sql_file"]):
            raise RuntimeError("an error page")

    for text in QUERIES:
        with visit.action(f"SQL window: {text[:60]}"):
            run_query(text)
    for text in ATTACKS:
        visit.attack(f"SQL window: {text[:60]}", lambda text=text: run_query(text))


def transfer(visit, files):
    browser = visit.browser
    dump = ""
    for page, form in (("/table/export&" + TABLE, "form[name=dump]"), ("/server/export", "form[name=dump]")):
        with visit.action(f"export {page}"):
            visit.open("/pma/index.php?route=" + page, f"!!document.querySelector('{form}')")
            dump = dump or send_form(visit, form, {"quick_or_custom": "quick", "what": "sql"})

    def import_dump():
        path = files[0].parent / "goods.sql"
        path.write_text(dump.replace("CREATE TABLE `goods`", "CREATE TABLE `goods2`").replace("`goods`", "`goods2`"),
                        encoding="utf-8")
        visit.open("/pma/index.php?route=/database/import&" + SHOP, "!!document.querySelector('#input_import_file')")
        browser.choose_files("#input_import_file", path)
        send_form(visit, "#import_file_form", {"ajax_request": "true"})

    visit.attack("import the dump", import_dump)  # a profile that admits few kinds of files stops it
    with visit.action("import members.csv"):
        visit.open("/pma/index.php?route=/table/import&db=shop&table=customers",
                   "!!document.querySelector('#input_import_file')")
        browser.choose_files("#input_import_file", next(path for path in files if path.name == "members.csv"))
        send_form(visit, "#import_file_form", {"format": "csv", "ajax_request": "true"})


def wiki_edit(visit, page, changes):
    visit.open(f"/wiki/doku.php?id={page}&do=edit", "!!document.querySelector('#dw__editform')")
    return send_form(visit, "#dw__editform", changes)


def write_pages(visit, posts, token):
    for number, post in enumerate(posts):
        page = f"posts:p{number}"
        texts = {"wikitext": post.wiki(), "summary": post.title}
        if post.is_script:
            visit.attack(f"save: {post.title}", lambda page=page,
                         texts=texts: wiki_edit(visit, page, {**texts, "do[save]": "1"}))
            continue
        with visit.action(f"preview: {post.title}"):
            wiki_edit(visit, page, {**texts, "do[preview]": "1"})
        with visit.action(f"draft: {post.title}"):
            visit.send("/wiki/lib/exe/ajax.php",
                       {"call": "draft", "id": page, "wikitext": post.wiki(), "prefix": ".", "suffix": "", "date": "0",
                        "sectok": token})
        with visit.action(f"save: {post.title}"):
            wiki_edit(visit, page, {**texts, "do[save]": "1"})
        with visit.action(f"read and search: {post.title}"):
            visit.get(f"/wiki/doku.php?id={page}", most=404)
            words = urllib.parse.quote_plus(post.title)
            visit.get(f"/wiki/doku.php?do=search&id={page}&q={words}&sf=1&min=&max=&srt=")
            visit.send("/wiki/lib/exe/ajax.php", {"call": "qsearch", "q": post.title})


def visit_dokuwiki(visit, posts, files):
    browser, visit.application = visit.browser, "DokuWiki"
    visit.log_in("/wiki/doku.php?id=start&do=login", "input[name=u]", "input[name=p]", "#dw__login button[type=submit]",
                 "/Logged in as/.test(document.body.innerText)")
    with visit.action("write a page by hand"):
        visit.open("/wiki/doku.php?id=by:hand&do=edit", "!!document.querySelector('#wiki__text')")
        browser.type("#wiki__text", posts[0].wiki())
        visit.submit_form("#dw__editform", "#edbtn__save", {"#edit__summary": "first draft -- it's 'new' & \"better\""})
    token = browser.value("document.querySelector('input[name=sectok]').value")
    write_pages(visit, posts, token)
    for path in files:
        with visit.action(f"upload {path.name}"):
            visit.send("/wiki/lib/exe/ajax.php",
                       [["call", "mediaupload"], ["ns", "posts"], ["mediaid", path.name], ["sectok", token],
                        ["ow", "checked"],
                                                  ["qqfile", base64.b64encode(path.read_bytes()).decode(), path.name,
                                                   "application/octet-stream"]], "multipart")
    for query in ("id=posts:p0&do=revisions", "id=posts:p0&do=diff&rev2%5B0%5D=&difftype=sidebyside",
                  "id=posts:p0&do=export_raw", "id=start&do=index&idx=posts", "id=start&do=recent",
                  "id=start&do=backlink", "id=start&do=media&ns=posts", "id=start&do=admin", "id=start&do=admin&page=acl",
                  "id=start&do=admin&page=usermanager",
                  "id=start&do=admin&page=extension", "id=start&do=admin&page=revert", "id=start&do=admin&page=styling",
                  "id=start&do=admin&page=logviewer",
                  "id=start&do=profile", "id=o%27brien:it%27s_new", "id=%E6%B8%AF%E5%8F%A3",
                  "do=search&q=%22where+and+when%22+-drop+table&id=start"):
        visit.look("/wiki/doku.php?" + query)
    for path in ("/wiki/feed.php", "/wiki/feed.php?type=atom1&mode=list&ns=posts", "/wiki/lib/exe/css.php?t=dokuwiki",
                 "/wiki/lib/exe/js.php?t=dokuwiki", "/wiki/lib/exe/fetch.php?w=200&media=posts:regatta.png",
                 "/wiki/doku.php?id=posts:p0&do=edit&rev=0&summary=%5Bundo%5D"):
        with visit.action("open " + path):
            visit.get(path, most=412)
    with visit.action("save the configuration"):
        visit.open("/wiki/doku.php?id=start&do=admin&page=config", "!!document.querySelector('#dw__configform')")
        visit.submit_form("#dw__configform", "button[type=submit]",
                          {"#config___title": "O'Brien's \"Harbour\" wiki & more",
                           "#config___tagline": "Where we write -- it's ours"})
    with visit.action("new user"):
        visit.open("/wiki/doku.php?id=start&do=admin&page=usermanager", "!!document.querySelector('[name=userpass]')")
        send_form(visit, "form:has([name=userpass])",
                  {"userid": "obrien", "userpass": "a'b\"c--d;#1=1 or 2", "userpass2": "a'b\"c--d;#1=1 or 2",
                   "username": "S. O'Brien",
                                                 "usermail": "o'brien@example.org", "usergroups": "user", "usernotify": "0",
                                                 "fn[add]": "1"})
    with visit.action("delete a page"):
        wiki_edit(visit, "by:hand", {"wikitext": "", "do[save]": "1", "summary": "removed"})


def visit_static(visit, posts, _):
    browser, visit.application = visit.browser, "static site"
    for page in ("", "index.html", "products.html", "products.html?category=sea&sort=price&order=desc",
                 "search.html?q=o%27brien", "none.html", "style.css",
                 "robots.txt", "favicon.ico", "index.html?utm_source=news&utm_campaign=a%26b&gclid=Cj0KCQ-x_y.z",
                 "products.html#reviews", "a/../index.html"):
        with visit.action("open /static/" + page):
            visit.get("/static/" + page, most=404)
    for post in posts:
        with visit.action(f"search: {post.title}"):
            visit.get("/static/search.html?q=" + urllib.parse.quote_plus(post.title))
    union = "/static/search.html?q=" + urllib.parse.quote_plus("1' union select name, password from users-- ")
    visit.attack("search: union select", lambda: visit.get(union))
    with visit.action("follow the links"):
        visit.open("/static/index.html")
        for number in range(browser.value("document.links.length")):
            visit.open("/static/index.html")
            browser.value(f"document.links[{number}].click()")
            browser.wait("document.readyState == 'complete'", 20)
