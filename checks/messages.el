;; Writes what a compilation buffer makes of the messages in the file given last on the command line:
;; a JSON list of [file, line, column, kind, text of the line].
(require 'vex-cpp)
(require 'json)

(setq compilation-error-regexp-alist (mapcar #'car vex-cpp-error-regexp-alist))
(insert-file-contents (car (last command-line-args)))
(setq command-line-args-left nil)
(compilation-mode)
(compilation--ensure-parse (point-max))

(defun messages-next (place)
  "The start of the first message from PLACE on, or nil."
  (if (get-text-property place 'compilation-message)
      place
    (next-single-property-change place 'compilation-message)))

(let ((place (messages-next (point-min))) found)
  (while place
    (let* ((message (get-text-property place 'compilation-message))
           (where (compilation--message->loc message)))
      (goto-char place)
      (push (list (caar (compilation--loc->file-struct where))
                  (compilation--loc->line where)
                  (compilation--loc->col where)
                  (aref ["note" "warning" "error"] (compilation--message->type message))
                  (buffer-substring-no-properties place (line-end-position)))
            found))
    (setq place (next-single-property-change place 'compilation-message)
          place (and place (messages-next place))))
  (princ (json-encode (vconcat (nreverse found)))))
