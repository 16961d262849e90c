;;; kestrel-dap.el --- Debug OpenCL kernels with dap-mode  -*- lexical-binding: t; -*-

;; Version: 1.4.0
;; Package-Requires: ((emacs "26.1") (dap-mode "0.7"))
;; Keywords: languages, tools

;;; Commentary:

;; This makes `dap-mode' debug OpenCL kernels through `kestrel dap'.  With
;; (require 'kestrel-dap) in the init file, `M-x dap-debug' offers two templates,
;; one for a launch file and one for a program.  Their properties are:
;;
;;   :launchFile   the path of a launch file
;;   :program      a program whose kernels are debugged, in place of :launchFile
;;   :args         its arguments, as a vector of strings
;;   :env          variables of its environment, as an alist; a variable whose
;;                 value is nil is removed
;;   :cwd          the folder of the session
;;   :stopOnEntry  whether to stop before the first instruction
;;
;; `kestrel-dap-step-back' and `kestrel-dap-reverse-continue' go back, and
;; `kestrel-dap-work-item' looks at another work-item.

;;; Code:

(require 'dap-mode)

;; `lsp-treemacs' 0.4, which draws the windows of `dap-ui', reads this variable
;; of a newer `treemacs' than 2.8.  Debian 12 has just these two.
(defvar treemacs-text-scale nil)

(defgroup kestrel-dap nil
  "Debug OpenCL kernels."
  :group 'dap-mode
  :prefix "kestrel-dap-")

(defcustom kestrel-dap-adapter '("kestrel" "dap")
  "The debug adapter: a program and its arguments."
  :type '(repeat string))

(defun kestrel-dap--read-launch-file ()
  "Ask for a launch file.
The default is that with the name of the visited file, if there is one."
  (let ((default (and buffer-file-name
                      (concat (file-name-sans-extension buffer-file-name) ".json"))))
    (read-file-name "Launch file: " nil nil t
                    (and default (file-exists-p default)
                         (file-name-nondirectory default))
                    (lambda (name)
                      (or (file-directory-p name) (string-suffix-p ".json" name))))))

(defun kestrel-dap--complete (configuration)
  "Return CONFIGURATION of a debug session with all that the adapter needs.
What is debugged is asked for if CONFIGURATION has neither a launch
file nor a program."
  (let* ((configuration (copy-sequence configuration))
         (folder (expand-file-name (or (plist-get configuration :cwd) default-directory)))
         (program (plist-get configuration :program))
         (launch-file (plist-get configuration :launchFile)))
    (cond ((or program launch-file))
          ((plist-member configuration :program)
           (setq program (read-file-name "Program: " nil nil t)))
          (t
           (setq launch-file (kestrel-dap--read-launch-file))))
    (setq configuration (plist-put configuration :dap-server-path kestrel-dap-adapter))
    (setq configuration (plist-put configuration :cwd folder))
    (when launch-file
      (setq configuration
            (plist-put configuration :launchFile (expand-file-name launch-file folder))))
    (when program
      ;; A name without a folder is one to be looked for in PATH.
      (setq configuration
            (plist-put configuration :program
                       (if (file-name-directory program)
                           (expand-file-name program folder)
                         program))))
    (-> configuration
        (dap--put-if-absent :request "launch")
        (dap--put-if-absent :name "Kestrel"))))

(dap-register-debug-provider "kestrel" #'kestrel-dap--complete)

(dap-register-debug-template "Kestrel: program"
                             (list :type "kestrel"
                                   :request "launch"
                                   :name "Kestrel: program"
                                   :program nil
                                   :args []
                                   :env nil
                                   :cwd nil
                                   :stopOnEntry nil))

(dap-register-debug-template "Kestrel: launch file"
                             (list :type "kestrel"
                                   :request "launch"
                                   :name "Kestrel: launch file"
                                   :launchFile nil
                                   :cwd nil
                                   :stopOnEntry t))

;;;###autoload
(defun kestrel-dap-step-back (session)
  "Go back to the line before the one that SESSION has stopped at."
  (interactive (list (dap--cur-active-session-or-die)))
  (dap--step "stepBack" session))

;;;###autoload
(defun kestrel-dap-reverse-continue (session)
  "Let SESSION go back to the stop of a breakpoint before this one.
Without such a stop it goes back to the first instruction."
  (interactive (list (dap--cur-active-session-or-die)))
  (dap--step "reverseContinue" session))

;;;###autoload
(defun kestrel-dap-work-item (session item)
  "Let SESSION look at work-item number ITEM of the dispatch."
  (interactive (list (dap--cur-active-session-or-die) (read-number "Work-item: ")))
  (let ((thread (or (dap--debug-session-thread-id session)
                    (user-error "The session has not stopped"))))
    (dap--send-message
     (dap--make-request "kestrel/focus" (list :item item))
     (dap--resp-handler (lambda (_answer) (dap--select-thread-id session thread))
                        (lambda (text) (lsp--error "%s" text)))
     session)))

(provide 'kestrel-dap)
;;; kestrel-dap.el ends here
